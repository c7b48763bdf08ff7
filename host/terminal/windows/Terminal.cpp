#include "../Terminal.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <Korvane/platform/windows/WideText.h>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shellapi.h>

namespace platform {

namespace {

volatile std::sig_atomic_t s_interrupted = 0;

constexpr std::size_t kOutputBuffer = 32 * 1024;

BOOL WINAPI OnControl(DWORD) {
    if (s_interrupted != 0) return FALSE;
    s_interrupted = 1;
    return TRUE;
}

}  // namespace

bool WasInterrupted() {
    return s_interrupted != 0;
}

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
    if (count == 0) s_interrupted = 1;  // nothing read: Ctrl-C, whose handler may not have run yet
    password = NarrowText(line.c_str());
    return true;
}

void CatchInterrupts() {
    SetConsoleCtrlHandler(OnControl, TRUE);
}

void PrepareStandardOutput() {
    static const UINT s_codePage = GetConsoleOutputCP();  // restored at exit, since the console outlives the program
    std::atexit([] {
        std::fflush(nullptr);
        SetConsoleOutputCP(s_codePage);
    });
    SetConsoleOutputCP(CP_UTF8);
    for (std::FILE* const stream : {stdout, stderr}) {
        _setmode(_fileno(stream), _O_BINARY);
        // Without a buffer the console would get single bytes, and would show no character that has several.
        std::setvbuf(stream, nullptr, _IOFBF, kOutputBuffer);
    }
}

void PrepareStandardInput() {
    _setmode(_fileno(stdin), _O_BINARY);
}

bool CanWriteOutput(int /*milliseconds*/) {
    return true;
}

bool WriteOutput(const char* bytes, std::size_t count) {
    return std::fwrite(bytes, 1, count, stdout) == count && std::fflush(stdout) == 0;
}

std::optional<std::string> GetVariable(const char* name) {
    const std::wstring wide(name, name + std::strlen(name));  // ASCII
    const wchar_t* const value = _wgetenv(wide.c_str());
    return value != nullptr ? std::optional<std::string>(NarrowText(value)) : std::nullopt;
}

std::string GetOwnProgram() {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return NarrowText(path.c_str());
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

}  // namespace platform
