#include "Exception.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

constexpr std::size_t kCapacity = 4096;

// Writable and with their prefixes from the start: they are read from outside the program, by a debugger.
char g_DimMessage[kCapacity] = "Errore di dimensioni - ";
char g_MemMessage[kCapacity] = "Errore di memoria - ";
char g_ZeroMessage[kCapacity] = "Divisione per zero - ";

// Two threads that throw at once mix their texts up, but never write beyond the buffer: its last byte stays zero.
void Append(char (&buffer)[kCapacity], const char* operation) {
    if (operation == nullptr) return;
    char* const end = buffer + kCapacity - 1;
    char* const from = std::find(buffer, end, '\0');
    const std::size_t count = std::min(std::strlen(operation), static_cast<std::size_t>(end - from));
    std::memcpy(from, operation, count);
    from[count] = '\0';
}

}  // namespace

// The destructors are defined here, so that each class has its type information in the module alone and an exception is
// recognised beyond the module's border.

Exception::Exception() = default;
Exception::Exception(const char* /*text*/) {}
Exception::Exception(const Exception& other) = default;
Exception& Exception::operator=(const Exception& other) = default;
Exception::~Exception() = default;

DimException::DimException() = default;
DimException::DimException(const char* operation) {
    Append(g_DimMessage, operation);
}
DimException::DimException(const DimException& other) = default;
DimException& DimException::operator=(const DimException& other) = default;
DimException::~DimException() = default;

MemException::MemException() = default;
MemException::MemException(const char* operation) {
    Append(g_MemMessage, operation);
}
MemException::MemException(const MemException& other) = default;
MemException& MemException::operator=(const MemException& other) = default;
MemException::~MemException() = default;

ZeroException::ZeroException() = default;
ZeroException::ZeroException(const char* operation) {
    Append(g_ZeroMessage, operation);
}
ZeroException::ZeroException(const ZeroException& other) = default;
ZeroException& ZeroException::operator=(const ZeroException& other) = default;
ZeroException::~ZeroException() = default;
