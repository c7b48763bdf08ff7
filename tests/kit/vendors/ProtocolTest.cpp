#include <Korvane/kit/vendors/AsciiProtocol.h>
#include <Korvane/kit/vendors/GeProtocol.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>
#include <zlib.h>

using korvane::AsciiProtocol;
using korvane::GeProtocol;

namespace {

std::vector<unsigned char> Packed(const std::string& text) {
    z_stream stream{};
    deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, MAX_WBITS + 16, 8, Z_DEFAULT_STRATEGY);
    std::vector<unsigned char> bytes(4 + deflateBound(&stream, static_cast<uLong>(text.size())));
    std::string copy = text;
    stream.next_in = reinterpret_cast<Bytef*>(copy.data());
    stream.avail_in = static_cast<uInt>(copy.size());
    stream.next_out = bytes.data() + 4;
    stream.avail_out = static_cast<uInt>(bytes.size() - 4);
    deflate(&stream, Z_FINISH);
    bytes.resize(bytes.size() - stream.avail_out);
    deflateEnd(&stream);
    return bytes;
}

}  // namespace

TEST(AsciiProtocol, ReadsLinesBetweenItsMarks) {
    const std::string bytes =
        "sPat.lAccelFactPE = 9\n### ASCCONV BEGIN object=x ###\nsPat.lAccelFactPE\t = \t2\r\n"
        "sPat.lAccelFactPEx = 3\nucPhase   = 0x10\ntName = \"\"%Seq%\\ep2d\"\"\nodd = 2,5\nbehind 4\n"
        "### ASCCONV END ###\nlast = 5\n";
    const AsciiProtocol protocol(bytes);
    EXPECT_EQ(protocol.Integer("sPat.lAccelFactPE"), 2);
    EXPECT_EQ(protocol.Integer("ucPhase"), 16);
    EXPECT_EQ(protocol.Text("tName"), "%Seq%\\ep2d");
    for (const char* const none : {"odd", "behind", "last", "sPat", "tName"}) {
        EXPECT_FALSE(protocol.Integer(none).has_value()) << none;
    }
    for (const char* const cut : {"", "### ASCCONV BEGIN", "### ASCCONV BEGIN\nname", "### ASCCONV BEGIN\nname ="}) {
        EXPECT_EQ(AsciiProtocol(cut).Text("name"), "") << cut;
    }
}

TEST(GeProtocol, InflatesWithinItsBoundsAlone) {
    const std::vector<unsigned char> bytes = Packed("VIEWORDER \"1\"\nXVIEW \"2\"\nOPEN \"3\nEND \"4\"");
    const GeProtocol protocol(bytes);
    EXPECT_EQ(protocol.Text("VIEWORDER"), "1");
    EXPECT_EQ(protocol.Text("END"), "4");
    for (const char* const none : {"VIEW", "OPEN", ""}) EXPECT_EQ(protocol.Text(none), "") << none;
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_EQ(GeProtocol(std::span(bytes).first(size)).Text("VIEWORDER"), "") << size;
    }
    const std::string bomb = "A \"1\"\n" + std::string(1 << 20, ' ');
    EXPECT_EQ(GeProtocol(Packed(bomb)).Text("A"), "");
}
