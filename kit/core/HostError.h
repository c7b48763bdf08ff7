// How the program's parts report failure: one line that names the file and the reason.
#pragma once

#include "Error.h"

#include <string>

namespace korvane {

// Bridges to `Error`, until every room of the Kit throws that itself.
class HostError : public Error {
public:
    explicit HostError(const std::string& text, ErrorKind kind = ErrorKind::Disk) : Error(kind, text) {}
};
class UsageError : public Error {
public:
    explicit UsageError(const std::string& text, const std::string& choices = {})
        : Error(ErrorKind::WrongArgument, text) {
        WithChoices(choices);
    }
};
class Interrupted : public HostError {
public:
    Interrupted() : HostError("stopped", ErrorKind::Stopped) {}
};

/// Throws `Interrupted` once Ctrl-C has come.
void StopIfInterrupted();

/// A line on standard error.
void Warn(const std::string& text);

}  // namespace korvane
