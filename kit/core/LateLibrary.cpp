#include "LateLibrary.h"

#include "Error.h"

namespace korvane {

platform::ModuleHandle LateLibrary::Open() const {
    platform::ModuleHandle handle = m_Handle.load(std::memory_order_acquire);
    if (handle != nullptr) return handle;
    handle = platform::OpenModule(m_pFile);
    if (handle == nullptr) {
        throw Error(ErrorKind::Unsupported,
                    std::string("the library ") + m_pFile + " cannot be opened: is it installed?");
    }
    platform::ModuleHandle other = nullptr;  // another thread's, which is the same library
    if (!m_Handle.compare_exchange_strong(other, handle)) platform::CloseModule(handle);
    return m_Handle;
}

platform::ModuleFunction LateLibrary::Find(const char* name) const {
    const platform::ModuleFunction function = platform::FindFunction(Open(), name);
    if (function == nullptr) {
        throw Error(ErrorKind::Unsupported, std::string("the library ") + m_pFile + " has no function " + name);
    }
    return function;
}

}  // namespace korvane
