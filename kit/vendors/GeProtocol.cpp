#include "GeProtocol.h"

#include <cstddef>
#include <zlib.h>

namespace korvane {

namespace {

constexpr std::size_t kLongest = std::size_t{64} << 10;
constexpr std::size_t kLength = 4;  // of the number in front
constexpr int kGzip = 16;           // added to the window's bits: a gzip header is expected

}  // namespace

GeProtocol::GeProtocol(std::span<const unsigned char> bytes) {
    if (bytes.size() <= kLength || bytes.size() > kLongest) return;
    bytes = bytes.subspan(kLength);
    z_stream stream{};
    if (inflateInit2(&stream, MAX_WBITS + kGzip) != Z_OK) return;
    std::string text(kLongest, '\0');
    stream.next_in = const_cast<Bytef*>(bytes.data());  // which zlib does not change
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(text.data());
    stream.avail_out = static_cast<uInt>(text.size());
    const bool isWhole = inflate(&stream, Z_FINISH) == Z_STREAM_END;
    text.resize(text.size() - stream.avail_out);
    inflateEnd(&stream);
    if (isWhole) m_Lines = "\n" + text;
}

std::string GeProtocol::Text(std::string_view name) const {
    const std::string begin = "\n" + std::string(name) + " \"";
    const std::size_t at = m_Lines.find(begin);
    if (at == std::string::npos) return {};
    const std::string_view rest = std::string_view(m_Lines).substr(at + begin.size());
    const std::size_t end = rest.find_first_of("\"\n");
    return end != std::string_view::npos && rest[end] == '"' ? std::string(rest.substr(0, end)) : std::string();
}

}  // namespace korvane
