// BSTR on systems other than Windows: a malloc block that begins with the text's length in bytes.
#include "Automation.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// Bytes in front of the text. The length needs 4; 16 keep the text aligned as malloc aligned the block.
constexpr std::size_t kHeader = 16;
constexpr UINT kLongest = 0x7FFFFFFFu - 32;

unsigned char* BlockOf(BSTR text) {
    return reinterpret_cast<unsigned char*>(text) - kHeader;
}

}  // namespace

BSTR SysAllocStringByteLen(const char* bytes, UINT length) {
    if (length > kLongest) return nullptr;
    auto* const block = static_cast<unsigned char*>(std::malloc(kHeader + length + sizeof(OLECHAR) + 1));
    if (block == nullptr) return nullptr;
    std::memcpy(block, &length, sizeof length);
    if (bytes != nullptr && length != 0) std::memcpy(block + kHeader, bytes, length);
    std::memset(block + kHeader + length, 0, sizeof(OLECHAR) + 1);
    return reinterpret_cast<BSTR>(block + kHeader);
}

BSTR SysAllocStringLen(const OLECHAR* text, UINT length) {
    if (length > kLongest / sizeof(OLECHAR)) return nullptr;
    return SysAllocStringByteLen(reinterpret_cast<const char*>(text), length * static_cast<UINT>(sizeof(OLECHAR)));
}

BSTR SysAllocString(const OLECHAR* text) {
    if (text == nullptr) return nullptr;
    const std::size_t length = std::char_traits<OLECHAR>::length(text);
    return length > kLongest ? nullptr : SysAllocStringLen(text, static_cast<UINT>(length));
}

UINT SysStringByteLen(BSTR text) {
    UINT length = 0;
    if (text != nullptr) std::memcpy(&length, BlockOf(text), sizeof length);
    return length;
}

UINT SysStringLen(BSTR text) {
    return SysStringByteLen(text) / static_cast<UINT>(sizeof(OLECHAR));
}

void SysFreeString(BSTR text) {
    if (text != nullptr) std::free(BlockOf(text));
}
