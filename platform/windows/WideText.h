// Texts for and from the calls of Windows, which are UTF-16 there.
#pragma once

#include <string>

namespace platform {

/// From UTF-8, or, where the text is not valid UTF-8, from the system's code page.
std::wstring WideText(const char* text);

/// To UTF-8.
std::string NarrowText(const wchar_t* text);

}  // namespace platform
