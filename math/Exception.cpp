#include "Exception.h"

#include "platform/PerThread.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>

namespace {

constexpr std::size_t kCapacity = 4096;

// The texts of the three kinds. Writable and with their prefixes from the start: they are read from outside the
// program, by a debugger.
struct Messages {
    char dimension[kCapacity] = "Errore di dimensioni - ";
    char memory[kCapacity] = "Errore di memoria - ";
    char zero[kCapacity] = "Divisione per zero - ";
};

constinit Messages g_Messages;
constinit std::atomic<bool> g_bTaken = false;

// The calling thread's texts: those of the module, which keep what was said before, where no other thread has them,
// else some of its own. So a program whose threads throw one at a time, each ending before the next, finds all in one
// place.
class OwnMessages {
public:
    OwnMessages() = default;
    OwnMessages(const OwnMessages&) = delete;
    OwnMessages& operator=(const OwnMessages&) = delete;
    ~OwnMessages() {
        if (m_pMessages == &g_Messages) {
            g_bTaken.store(false, std::memory_order_release);
        } else {
            delete m_pMessages;
        }
        m_pMessages = nullptr;
        m_bEnded = true;
    }

    // Null where there is no memory, and when the thread has ended but for its last destructors.
    Messages* Get() {
        if (m_pMessages == nullptr && !m_bEnded) {
            m_pMessages =
                g_bTaken.exchange(true, std::memory_order_acquire) ? new (std::nothrow) Messages : &g_Messages;
        }
        return m_pMessages;
    }

private:
    Messages* m_pMessages = nullptr;
    bool m_bEnded = false;
};

// The last byte of a text stays zero.
void Append(char (Messages::*kind)[kCapacity], const char* operation) {
    Messages* const messages = platform::PerThread<OwnMessages>::Get().Get();
    if (operation == nullptr || messages == nullptr) return;
    char(&buffer)[kCapacity] = messages->*kind;
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
    Append(&Messages::dimension, operation);
}
DimException::DimException(const DimException& other) = default;
DimException& DimException::operator=(const DimException& other) = default;
DimException::~DimException() = default;

MemException::MemException() = default;
MemException::MemException(const char* operation) {
    Append(&Messages::memory, operation);
}
MemException::MemException(const MemException& other) = default;
MemException& MemException::operator=(const MemException& other) = default;
MemException::~MemException() = default;

ZeroException::ZeroException() = default;
ZeroException::ZeroException(const char* operation) {
    Append(&Messages::zero, operation);
}
ZeroException::ZeroException(const ZeroException& other) = default;
ZeroException& ZeroException::operator=(const ZeroException& other) = default;
ZeroException::~ZeroException() = default;
