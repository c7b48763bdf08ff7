// How the program's parts report failure: one line that names the file and the reason.
#pragma once

#include <stdexcept>
#include <string>

/// What could not be done: exit status 1.
class HostError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Arguments that make no sense together: exit status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The first Ctrl-C ended the work: exit status 1.
class Interrupted : public HostError {
public:
    Interrupted() : HostError("stopped") {}
};

/// Throws `Interrupted` once Ctrl-C has come.
void StopIfInterrupted();

/// The text of an `errno` value.
std::string SystemText(int error);

/// A line on standard error.
void Warn(const std::string& text);
