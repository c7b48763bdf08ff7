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

/// From now on the first Ctrl-C (SIGINT) or request to end (SIGTERM) only sets a flag, and makes system calls that wait
/// return with an error, those too that begin later. The second one ends the program as usual.
void CatchInterrupts();

/// Whether Ctrl-C or a request to end has come since `CatchInterrupts`.
bool WasInterrupted();

/// Ends the program as Ctrl-C (or the request to end) would have ended it, to be called when everything is in order: by
/// the signal, so that a shell's loop around the program ends too; on Windows with exit status 1. Output is flushed
/// before.
[[noreturn]] void EndByInterrupt();

/// Makes standard output and error take UTF-8 and bytes unchanged, without translation of line ends. On Windows both
/// are buffered from then on: flush what shall be seen at once.
void PrepareStandardOutput();

/// Waits until standard output takes `kOutputStep` bytes at once or has failed, at most for that time. Always true on
/// Windows, whose pipes do not tell.
bool CanWriteOutput(int milliseconds);
inline constexpr std::size_t kOutputStep = 4096;  ///< bytes that a pipe takes as a whole if it takes any (PIPE_BUF)

/// Writes to standard output and flushes it. False when the system refuses or the reader has gone; a plain write would
/// end the program then.
bool WriteOutput(const char* bytes, std::size_t count);

/// An environment variable in UTF-8; nothing when it is not set.
std::optional<std::string> GetVariable(const char* name);

/// Makes standard input give bytes unchanged.
void PrepareStandardInput();

/// The file of this program, to start it once more.
std::string GetOwnProgram();

/// The arguments of `main` in UTF-8, the program's name first.
std::vector<std::string> GetArguments(int argc, char** argv);

}  // namespace platform
