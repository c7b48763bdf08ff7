#include "../ChildProgram.h"

#include <Korvane/Kit.h>
#include <Korvane/platform/windows/WideText.h>

#include <array>
#include <windows.h>

namespace {

constexpr DWORD kFirstCrash = 0xC0000000;  // exit statuses from here on are those of exceptions

/// As the C runtime takes a command line apart: backslashes count before quotes alone.
std::wstring Quoted(const std::wstring& word) {
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t letter : word) {
        if (letter == L'"') quoted.append(backslashes + 1, L'\\');
        backslashes = letter == L'\\' ? backslashes + 1 : 0;
        quoted += letter;
    }
    quoted.append(backslashes, L'\\');
    return quoted + L'"';
}

}  // namespace

std::optional<int> RunChild(const std::vector<std::string>& arguments) {
    std::array<wchar_t, 32768> program{};
    GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size()));
    std::wstring line = Quoted(program.data());
    for (const std::string& argument : arguments) line += L' ' + Quoted(platform::WideText(argument.c_str()));
    STARTUPINFOW start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION child{};
    if (CreateProcessW(program.data(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &child) == 0) {
        throw korvane::Error(korvane::ErrorKind::Disk,
                             "cannot start this program once more: error " + std::to_string(GetLastError()));
    }
    CloseHandle(child.hThread);
    WaitForSingleObject(child.hProcess, INFINITE);
    DWORD status = 0;
    GetExitCodeProcess(child.hProcess, &status);
    CloseHandle(child.hProcess);
    return status < kFirstCrash ? std::optional<int>(static_cast<int>(status)) : std::nullopt;
}
