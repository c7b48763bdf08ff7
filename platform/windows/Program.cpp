#include "platform/Program.h"

#include "WideText.h"

#include <cwchar>
#include <system_error>
#include <windows.h>

namespace platform {

namespace {

constexpr DWORD kFirstException = 0xC0000000;  // exit statuses from here on are those of exceptions

// A word as the C runtime takes a command line apart: backslashes count before quotes alone.
std::wstring Quoted(const std::string& word) {
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t letter : WideText(word.c_str())) {
        if (letter == L'"') quoted.append(backslashes + 1, L'\\');
        backslashes = letter == L'\\' ? backslashes + 1 : 0;
        quoted += letter;
    }
    quoted.append(backslashes, L'\\');
    return quoted + L'"';
}

// Of two entries for one name the first counts.
std::wstring EnvironmentWith(const std::vector<std::pair<std::string, std::string>>& variables) {
    std::wstring block;
    for (const auto& [name, value] : variables) block.append(WideText((name + '=' + value).c_str())).push_back(0);
    wchar_t* const own = GetEnvironmentStringsW();
    for (const wchar_t* entry = own; *entry != 0; entry += std::wcslen(entry) + 1) block.append(entry).push_back(0);
    FreeEnvironmentStringsW(own);
    block.push_back(0);
    return block;
}

HANDLE HandleOf(std::intptr_t handle) {
    return reinterpret_cast<HANDLE>(handle);
}

}  // namespace

Program::~Program() {
    if (m_Handle != kNone) CloseHandle(HandleOf(m_Handle));
}

Program& Program::operator=(Program&& other) noexcept {
    std::swap(m_Handle, other.m_Handle);
    return *this;
}

bool Program::Start(const ProgramStart& start, std::string& why) {
    std::wstring line;
    for (const std::string& word : start.command) line += (line.empty() ? L"" : L" ") + Quoted(word);
    std::wstring environment = EnvironmentWith(start.variables);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION made{};
    const DWORD flags = CREATE_UNICODE_ENVIRONMENT | CREATE_NEW_PROCESS_GROUP |
                        (start.sharesOutput ? DWORD{0} : DWORD{CREATE_NO_WINDOW});
    if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, start.sharesOutput ? TRUE : FALSE, flags,
                       environment.data(), nullptr, &startup, &made) == 0) {
        why = std::system_category().message(static_cast<int>(GetLastError()));
        return false;
    }
    CloseHandle(made.hThread);
    m_Handle = reinterpret_cast<std::intptr_t>(made.hProcess);
    return true;
}

std::optional<ProgramEnd> Program::Ask() {
    const HANDLE process = HandleOf(m_Handle);
    if (WaitForSingleObject(process, 0) == WAIT_TIMEOUT) return std::nullopt;
    DWORD status = 0;
    GetExitCodeProcess(process, &status);
    CloseHandle(process);
    m_Handle = kNone;
    return ProgramEnd{status < kFirstException, static_cast<int>(status)};
}

void Program::RequestEnd() const {
    if (m_Handle == kNone) return;
    if (GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, GetProcessId(HandleOf(m_Handle))) == 0)
        TerminateProcess(HandleOf(m_Handle), kFirstException);
}

}  // namespace platform
