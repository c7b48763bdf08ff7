#include "Terminal.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#if defined(_WIN32)
#include "../../platform/WideText.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shellapi.h>
#else
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#endif

namespace platform {

namespace {

volatile std::sig_atomic_t s_interrupted = 0;

}  // namespace

bool WasInterrupted() {
    return s_interrupted != 0;
}

#if defined(_WIN32)

namespace {

constexpr std::size_t kOutputBuffer = 32 * 1024;

BOOL WINAPI OnControl(DWORD) {
    if (s_interrupted != 0) return FALSE;
    s_interrupted = 1;
    return TRUE;
}

}  // namespace

void EndByInterrupt() {
    std::fflush(nullptr);
    std::exit(1);
}

bool IsErrorTerminal() {
    return _isatty(_fileno(stderr)) != 0;
}

int GetTerminalWidth() {
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info) == 0) return 80;
    return info.srWindow.Right - info.srWindow.Left + 1;
}

bool ReadPassword(const std::string& prompt, std::string& password) {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD before = 0;
    if (GetConsoleMode(input, &before) == 0 || !IsErrorTerminal()) return false;
    std::fprintf(stderr, "%s: ", prompt.c_str());
    std::fflush(stderr);
    SetConsoleMode(input, (before | ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT) & ~DWORD{ENABLE_ECHO_INPUT});
    std::wstring line;
    wchar_t letter = 0;
    DWORD count = 0;
    while (ReadConsoleW(input, &letter, 1, &count, nullptr) != 0 && count == 1 && letter != L'\n') {
        if (letter != L'\r') line += letter;
    }
    SetConsoleMode(input, before);
    std::fputc('\n', stderr);
    std::fflush(stderr);
    if (count == 0) s_interrupted = 1;  // the handler may not have come to it yet
    password = NarrowText(line.c_str());
    return true;
}

void CatchInterrupts() {
    SetConsoleCtrlHandler(OnControl, TRUE);
}

void PrepareStandardOutput() {
    static const UINT s_codePage = GetConsoleOutputCP();  // the console outlives the program
    std::atexit([] {
        std::fflush(nullptr);
        SetConsoleOutputCP(s_codePage);
    });
    SetConsoleOutputCP(CP_UTF8);
    for (std::FILE* const stream : {stdout, stderr}) {
        _setmode(_fileno(stream), _O_BINARY);
        // Without a buffer the console gets byte after byte, and shows no character that has several.
        std::setvbuf(stream, nullptr, _IOFBF, kOutputBuffer);
    }
}

void PrepareStandardInput() {
    _setmode(_fileno(stdin), _O_BINARY);
}

bool CanWriteOutput(int /*milliseconds*/) {
    return true;
}

std::vector<std::string> GetArguments(int argc, char** argv) {
    int count = 0;
    wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (wide == nullptr) return {argv, argv + argc};
    std::vector<std::string> arguments;
    for (int i = 0; i < count; ++i) arguments.push_back(NarrowText(wide[i]));
    LocalFree(wide);
    return arguments;
}

#else

namespace {

void OnSignal(int number) {
    s_interrupted = number;
}

}  // namespace

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
    // One of the two may be ignored already (nohup, a background job of a shell script): that stays.
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

std::vector<std::string> GetArguments(int argc, char** argv) {
    return {argv, argv + argc};
}

#endif

}  // namespace platform
