// Functions of shared libraries that few runs need. Such a library is opened when first one of its functions is called:
// bringing along all of them takes longer than most runs of the program.
#pragma once

#include "platform/DynamicModule.h"

#include <atomic>

namespace korvane {

/// A library by the name that the system's loader knows it by ("libcurl.so.4"). Once open it stays so, for it may have
/// registered what runs at the end of the program. For any number of threads.
class LateLibrary {
public:
    constexpr explicit LateLibrary(const char* file) : m_pFile(file) {}

    /// Throws `Error` (`Unsupported`) where the system has no such library, or the library no such function.
    platform::ModuleFunction Find(const char* name) const;

private:
    platform::ModuleHandle Open() const;

    const char* m_pFile;
    mutable std::atomic<platform::ModuleHandle> m_Handle{nullptr};
};

/// One function, looked up when it is first called. Declared in a namespace of ours by the function's own name, it is what
/// calls in that namespace find.
template <class Pointer>
class LateFunctionBase {
public:
    constexpr LateFunctionBase(const LateLibrary& library, const char* name) : m_Library(library), m_pName(name) {}

    Pointer Get() const {
        Pointer function = m_Function.load(std::memory_order_acquire);
        if (function == nullptr) {
            function = reinterpret_cast<Pointer>(m_Library.Find(m_pName));
            m_Function.store(function, std::memory_order_release);
        }
        return function;
    }

private:
    const LateLibrary& m_Library;
    const char* m_pName;
    mutable std::atomic<Pointer> m_Function{nullptr};
};

template <class Pointer>
class LateFunction;

template <class Result, class... Arguments>
class LateFunction<Result (*)(Arguments...)> : public LateFunctionBase<Result (*)(Arguments...)> {
public:
    using LateFunctionBase<Result (*)(Arguments...)>::LateFunctionBase;
    Result operator()(Arguments... arguments) const { return this->Get()(arguments...); }
};

/// With more arguments of any type.
template <class Result, class... Arguments>
class LateFunction<Result (*)(Arguments..., ...)> : public LateFunctionBase<Result (*)(Arguments..., ...)> {
public:
    using LateFunctionBase<Result (*)(Arguments..., ...)>::LateFunctionBase;
    template <class... More>
    Result operator()(Arguments... arguments, More... more) const {
        return this->Get()(arguments..., more...);
    }
};

}  // namespace korvane

/// Declares a function of C as one that is found late.
#define KORVANE_LATE(library, name) constinit const korvane::LateFunction<decltype(&::name)> name(library, #name)
