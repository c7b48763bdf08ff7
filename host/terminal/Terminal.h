// The program's surroundings when a person runs it: the terminal, Ctrl-C, the command line.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// Whether standard error goes to a terminal that understands a carriage return.
bool IsErrorTerminal();

/// Columns of that terminal; 80 where it does not tell.
int GetTerminalWidth();

/// Asks for a line on standard error and reads it from standard input without showing it. False, nothing asked, unless
/// both are terminals. Ctrl-C ends the line (`WasInterrupted`).
bool ReadPassword(const std::string& prompt, std::string& password);

/// From now on the first Ctrl-C (SIGINT) or request to end (SIGTERM) only sets a flag; system calls that wait return
/// with an error. The next one ends the program as usual.
void CatchInterrupts();

/// Whether one has come.
bool WasInterrupted();

/// Ends the program the way that Ctrl-C (or the request to end) would have ended it, once everything is in order, so that
/// a shell's loop around it ends too: by the signal; on Windows with exit status 1. Output is flushed before.
[[noreturn]] void EndByInterrupt();

/// Standard output and error take UTF-8 and bytes as they are, without line-end translation. On Windows both are
/// buffered from then on: flush what shall be seen at once.
void PrepareStandardOutput();

/// Whether standard output takes `kOutputStep` bytes within that time without waiting longer, or has failed. Always true on
/// Windows, whose pipes do not tell.
bool CanWriteOutput(int milliseconds);
inline constexpr std::size_t kOutputStep = 4096;  ///< what a pipe takes whole once it takes anything

/// Writes to standard output and flushes it. False when its reader has gone (which does not end the program, as a plain
/// write would) or the system refuses.
bool WriteOutput(const char* bytes, std::size_t count);

/// An environment variable in UTF-8; nothing when it is not set.
std::optional<std::string> GetVariable(const char* name);

/// Standard input gives bytes as they are.
void PrepareStandardInput();

/// The arguments of `main` in UTF-8, the program's name first.
std::vector<std::string> GetArguments(int argc, char** argv);

}  // namespace platform
