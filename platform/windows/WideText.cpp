#include "WideText.h"

#include <windows.h>

namespace platform {

std::wstring WideText(const char* text) {
    for (const unsigned codePage : {CP_UTF8, CP_ACP}) {
        const DWORD flags = codePage == CP_UTF8 ? MB_ERR_INVALID_CHARS : 0;
        const int length = MultiByteToWideChar(codePage, flags, text, -1, nullptr, 0);
        if (length == 0) continue;
        std::wstring wide(static_cast<std::size_t>(length), L'\0');
        MultiByteToWideChar(codePage, flags, text, -1, wide.data(), length);
        wide.pop_back();
        return wide;
    }
    return {};
}

std::string NarrowText(const wchar_t* text) {
    const int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (length <= 1) return {};
    std::string narrow(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, narrow.data(), length, nullptr, nullptr);
    narrow.pop_back();
    return narrow;
}

}  // namespace platform
