#include "StandardStreams.h"

#include "Terminal.h"

#include <cerrno>
#include <cstdio>
#include <streambuf>
#include <system_error>

namespace platform {

namespace {

// Throws, which a stream turns into its `badbit`.
[[noreturn]] void Fail() {
    throw std::system_error(errno, std::generic_category());
}

class InputBuffer : public std::streambuf {
protected:
    std::streamsize xsgetn(char* bytes, std::streamsize count) override {
        std::streamsize taken = 0;
        if (gptr() != egptr() && count > 0) {
            bytes[taken++] = m_Byte;
            gbump(1);
        }
        taken +=
            static_cast<std::streamsize>(std::fread(bytes + taken, 1, static_cast<std::size_t>(count - taken), stdin));
        if (taken < count && std::ferror(stdin) != 0) Fail();
        return taken;
    }

    int_type underflow() override {
        const int read = std::fgetc(stdin);
        if (read == EOF && std::ferror(stdin) != 0) Fail();
        if (read == EOF) return traits_type::eof();
        m_Byte = static_cast<char>(read);
        setg(&m_Byte, &m_Byte, &m_Byte + 1);
        return traits_type::to_int_type(m_Byte);
    }

private:
    char m_Byte = 0;
};

class OutputBuffer : public std::streambuf {
protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        return static_cast<std::streamsize>(std::fwrite(bytes, 1, static_cast<std::size_t>(count), stdout));
    }
    int_type overflow(int_type byte) override {
        return traits_type::eq_int_type(byte, traits_type::eof()) ? traits_type::not_eof(byte)
                                                                  : std::fputc(byte, stdout);
    }
    int sync() override { return std::fflush(stdout) == 0 ? 0 : -1; }
};

}  // namespace

StandardInput::StandardInput() : std::istream(nullptr), m_pBuffer(std::make_unique<InputBuffer>()) {
    PrepareStandardInput();
    rdbuf(m_pBuffer.get());
}
StandardInput::~StandardInput() = default;

StandardOutput::StandardOutput() : std::ostream(nullptr), m_pBuffer(std::make_unique<OutputBuffer>()) {
    rdbuf(m_pBuffer.get());
}
StandardOutput::~StandardOutput() = default;

}  // namespace platform
