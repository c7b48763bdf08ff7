// Other programs, started and waited for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace platform {

/// What is to be started, and with what.
struct ProgramStart {
    /// The program, looked for as the system looks for one, and its arguments. No shell sees them.
    std::vector<std::string> command{};
    std::vector<std::pair<std::string, std::string>> variables{};  ///< of its environment, beside this process's
    /// What it prints goes to this process's standard output and error; else all of it to standard error (POSIX), or
    /// nowhere (Windows).
    bool sharesOutput = false;
};

/// How a program ended.
struct ProgramEnd {
    bool isOwn = true;  ///< by itself; else by a signal, a crash, or somebody who ended it
    int status = 0;     ///< its exit status; of another end 128 and the signal (POSIX), or the exception (Windows)
};

/// A program that runs in the background, without input, and in a process group of its own: Ctrl-C at the terminal does
/// not reach it. It goes on when this object goes.
class Program {
public:
    Program() = default;
    ~Program();  // NOLINT(performance-trivially-destructible): on Windows it closes a handle
    Program(Program&& other) noexcept : m_Handle(std::exchange(other.m_Handle, kNone)) {}
    Program& operator=(Program&& other) noexcept;

    /// False with the reason in `why` when it cannot be started.
    bool Start(const ProgramStart& start, std::string& why);

    /// How it ended; nothing while it runs. To be asked until it tells, and not again.
    std::optional<ProgramEnd> Ask();

    /// Asks a program that runs to end: SIGTERM; on Windows as Ctrl-Break does.
    void RequestEnd() const;

private:
    static constexpr std::intptr_t kNone = -1;

    std::intptr_t m_Handle = kNone;
};

}  // namespace platform
