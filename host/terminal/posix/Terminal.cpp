#include "../Terminal.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

namespace platform {

namespace {

volatile std::sig_atomic_t s_interrupted = 0;

// A wait that begins between the question whether to stop and the system call would miss the signal, and have no end: from
// the first one on, calls that wait are interrupted again and again.
void OnSignal(int number) {
    s_interrupted = number;
    const itimerval often{.it_interval = {.tv_sec = 0, .tv_usec = 50000}, .it_value = {.tv_sec = 0, .tv_usec = 50000}};
    setitimer(ITIMER_REAL, &often, nullptr);
}

void OnTimer(int) {}

}  // namespace

bool WasInterrupted() {
    return s_interrupted != 0;
}

void EndByInterrupt() {
    std::fflush(nullptr);
    const int number = s_interrupted != 0 ? s_interrupted : SIGINT;
    signal(number, SIG_DFL);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, number);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    raise(number);
    std::_Exit(1);
}

bool IsErrorTerminal() {
    return isatty(STDERR_FILENO) != 0;
}

int GetTerminalWidth() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

bool ReadPassword(const std::string& prompt, std::string& password) {
    termios before{};
    if (!IsErrorTerminal() || tcgetattr(STDIN_FILENO, &before) != 0) return false;
    termios silent = before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    std::fprintf(stderr, "%s: ", prompt.c_str());
    std::fflush(stderr);
    password.clear();
    char letter = 0;
    while (!WasInterrupted() && read(STDIN_FILENO, &letter, 1) == 1 && letter != '\n') password += letter;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
    std::fputc('\n', stderr);
    return true;
}

void CatchInterrupts() {
    struct sigaction tick {};
    tick.sa_handler = OnTimer;
    sigemptyset(&tick.sa_mask);
    sigaction(SIGALRM, &tick, nullptr);
    // A signal that is ignored already (nohup, a background job of a shell script) stays ignored.
    for (const int number : {SIGINT, SIGTERM}) {
        struct sigaction before {};
        if (sigaction(number, nullptr, &before) != 0 || before.sa_handler == SIG_IGN) continue;
        struct sigaction action {};
        action.sa_handler = OnSignal;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        sigemptyset(&action.sa_mask);
        sigaction(number, &action, nullptr);
    }
}

void PrepareStandardOutput() {}

void PrepareStandardInput() {}

bool CanWriteOutput(int milliseconds) {
    pollfd entry{STDOUT_FILENO, POLLOUT, 0};
    return poll(&entry, 1, milliseconds) == 1;
}

bool WriteOutput(const char* bytes, std::size_t count) {
    sigset_t one;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&one);
    sigaddset(&one, SIGPIPE);
    sigpending(&pending);
    const bool wasPending = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &one, &before);
    const bool written = std::fwrite(bytes, 1, count, stdout) == count && std::fflush(stdout) == 0;
    // Takes a SIGPIPE of this write off the queue, which would be delivered when the signal is unblocked.
    const timespec now{};
    if (!written && !wasPending) sigtimedwait(&one, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return written;
}

std::optional<std::string> GetVariable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

std::string GetOwnProgram() {
    return "/proc/self/exe";
}

std::vector<std::string> GetArguments(int argc, char** argv) {
    return {argv, argv + argc};
}

}  // namespace platform
