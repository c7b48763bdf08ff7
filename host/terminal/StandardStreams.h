// Standard input and output as binary streams of the standard library. They are not buffered, so their output keeps its
// place among what the program prints otherwise.
#pragma once

#include <istream>
#include <memory>
#include <ostream>

namespace platform {

/// A read that fails (as opposed to the end of input) sets `badbit` and `errno`.
class StandardInput : public std::istream {
public:
    StandardInput();
    ~StandardInput() override;

private:
    std::unique_ptr<std::streambuf> m_pBuffer;
};

/// A write that fails sets `badbit` and `errno`.
class StandardOutput : public std::ostream {
public:
    StandardOutput();
    ~StandardOutput() override;

private:
    std::unique_ptr<std::streambuf> m_pBuffer;
};

}  // namespace platform
