#include "platform/FolderLock.h"

#include "SystemError.h"
#include "WideText.h"
#include "platform/File.h"
#include "platform/FileTree.h"

#include <cerrno>
#include <windows.h>

namespace platform {

// The lock is a file that is opened without sharing, and that the system deletes when its handle is closed.
bool FolderLock::TakeAlone(const std::string& folder) {
    Release();
    m_Folder = folder;
    const std::wstring name = WideText(NativePath((folder + "/.korvane.lock").c_str()).c_str());
    const HANDLE file = CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_HIDDEN | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        m_Handle = reinterpret_cast<std::intptr_t>(file);
        return true;
    }
    const DWORD reason = GetLastError();
    FailWithSystemError();
    // ERROR_ACCESS_DENIED: the last holder's file is being deleted at this moment.
    if (reason == ERROR_SHARING_VIOLATION || reason == ERROR_ACCESS_DENIED) errno = EBUSY;
    return false;
}

bool FolderLock::TakeShared(const std::string& folder) {
    Release();
    m_Folder = folder;
    return true;
}

bool FolderLock::RemoveFolder() {
    Release();
    return platform::RemoveFolder(m_Folder.c_str());
}

void FolderLock::Release() noexcept {
    if (m_Handle != kNone) CloseHandle(reinterpret_cast<HANDLE>(m_Handle));
    m_Handle = kNone;
}

}  // namespace platform
