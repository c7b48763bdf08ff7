#include "platform/Program.h"

#include <cerrno>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace platform {

namespace {

constexpr int kSignalled = 128;

// The texts as the system's calls take them, which must outlive the pointers.
std::vector<char*> PointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// Where input comes from and output goes, and what the program begins with: signals as they are at first, a process group
// of its own.
struct Rules {
    explicit Rules(bool sharesOutput) {
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        if (!sharesOutput) posix_spawn_file_actions_adddup2(&files, STDERR_FILENO, STDOUT_FILENO);
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    ~Rules() {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&files);
    }
    Rules(const Rules&) = delete;
    Rules& operator=(const Rules&) = delete;

    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
};

}  // namespace

Program::~Program() = default;

Program& Program::operator=(Program&& other) noexcept {
    m_Handle = std::exchange(other.m_Handle, kNone);
    return *this;
}

bool Program::Start(const ProgramStart& start, std::string& why) {
    std::vector<std::string> words = start.command;
    std::vector<std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry) variables.emplace_back(*entry);
    for (const auto& variable : start.variables) {
        const std::string beginning = variable.first + '=';
        std::erase_if(variables, [&](const std::string& entry) { return entry.starts_with(beginning); });
        variables.push_back(beginning + variable.second);
    }
    const Rules rules(start.sharesOutput);
    pid_t made = 0;
    const int error = posix_spawnp(&made, words.front().c_str(), &rules.files, &rules.attributes,
                                   PointersTo(words).data(), PointersTo(variables).data());
    if (error != 0) {
        why = std::generic_category().message(error);
        return false;
    }
    m_Handle = made;
    return true;
}

std::optional<ProgramEnd> Program::Ask() {
    int status = 0;
    const pid_t ended = waitpid(static_cast<pid_t>(m_Handle), &status, WNOHANG);
    if (ended == 0 || (ended < 0 && errno == EINTR)) return std::nullopt;
    m_Handle = kNone;
    if (ended < 0) return ProgramEnd{};  // somebody else in this process has asked for it
    if (WIFEXITED(status)) return ProgramEnd{true, WEXITSTATUS(status)};
    return ProgramEnd{false, kSignalled + WTERMSIG(status)};
}

void Program::RequestEnd() const {
    if (m_Handle != kNone) kill(static_cast<pid_t>(m_Handle), SIGTERM);
}

}  // namespace platform
