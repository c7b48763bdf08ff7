// How the program's parts report failure: one line that names the file and the reason.
#pragma once

#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace korvane {

/// What could not be done: exit status 1.
class HostError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Arguments that make no sense: exit status 2.
class UsageError : public std::runtime_error {
public:
    /// `choices`: what could have been asked for, whole lines that are safe to print.
    explicit UsageError(const std::string& text, std::string choices = {})
        : std::runtime_error(text), m_Choices(std::move(choices)) {}

    const std::string& GetChoices() const { return m_Choices; }

private:
    std::string m_Choices;
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
/// Why something could not be done with a path. By the `errno` value that the error stands for, where there is one:
/// Windows' own texts are in the user's language and in the system's code page.
std::string SystemText(const std::error_code& error, const std::string& path);

/// A line on standard error.
void Warn(const std::string& text);

}  // namespace korvane
