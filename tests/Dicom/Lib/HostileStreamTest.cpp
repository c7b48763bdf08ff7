// Streams that lie: a result in bounded time and memory, whatever they hold.
#include "DataSetBytes.h"

#include <gtest/gtest.h>

namespace {

// Loads, and encodes what came of it in every syntax.
void LoadAndEncode(const Bytes& bytes) {
    TransferSyntaxCodec codec(&PublicDictionary());
    DICOMFileReader reader(codec);
    const auto set = reader.LoadMemory(bytes.data(), bytes.size());
    ASSERT_NE(set, nullptr);
    for (const int syntax : {kImplicitLittleEndian, kExplicitLittleEndian, kExplicitBigEndian}) {
        const std::unique_ptr<DICOMObject> copy(set->Clone(true));
        MemoryOutputBuffer buffer;
        EXPECT_EQ(codec.EncodeStream(syntax, buffer, copy.get()), 1);
    }
}

// A source whose end is not known, as a socket's is not.
class Endless : public Buffer {
public:
    explicit Endless(const Bytes& bytes) : m_Bytes(bytes) {}

protected:
    std::size_t Fill(void* bytes, std::size_t capacity) override {
        const std::size_t count = std::min({capacity, m_Bytes.size() - m_Done, std::size_t{7}});
        std::memcpy(bytes, m_Bytes.data() + m_Done, count);
        m_Done += count;
        return count;
    }

private:
    const Bytes& m_Bytes;
    std::size_t m_Done = 0;
};

}  // namespace

TEST(HostileStream, TruncatedAtEveryByteAndEveryLengthFalsified) {
    for (const bool isExplicit : {true, false}) {
        const Bytes whole = SmallFile(isExplicit);
        TransferSyntaxCodec codec(&PublicDictionary());
        DICOMFileReader reader(codec);
        ASSERT_NE(reader.LoadMemory(whole.data(), whole.size()), nullptr);
        ASSERT_TRUE(reader.IsComplete());
        for (std::size_t size = 0; size < whole.size(); ++size) {
            LoadAndEncode(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        }
        for (std::size_t at = 132; at < whole.size(); ++at) {
            for (const std::uint32_t value : {0U, 1U, 0x7FFFFFFFU, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
                Bytes changed = whole;
                std::memcpy(changed.data() + at, &value, std::min<std::size_t>(4, changed.size() - at));
                LoadAndEncode(changed);
            }
        }
    }
}

TEST(HostileStream, NestingOfKnownLengthsBeyondTheLimitIsRefused) {
    TransferSyntaxCodec codec;
    DICOMFileReader reader(codec);
    Bytes stream;
    for (unsigned left = 2'000'000; left > 0; left -= 20) {
        const Bytes head = Join({le.Long(0x0040, 0xA730, "SQ", left - 12), le.Item(left - 20)});
        stream.insert(stream.end(), head.begin(), head.end());
    }
    const auto set = reader.LoadMemory(stream.data(), stream.size());
    EXPECT_FALSE(reader.IsComplete());
    EXPECT_NE(set->GetVR(0x0040, 0xA730), nullptr);
}

TEST(HostileStream, AStreamWithoutAKnownEndIsReadInSteps) {
    const std::string pixels(3'000'000, 'p');
    const Bytes stream = Join({le.Long(0x0040, 0xA730, "SQ", 18), le.Item(10), le.Short(0x0008, 0x0060, "CS", "MR"),
                               le.Long(0x7FE0, 0x0010, "OW", static_cast<unsigned>(pixels.size())), Text(pixels),
                               le.Long(0x7FE1, 0x0010, "OW", 0xFFFFFFF0), Text("little")});
    Endless buffer(stream);
    DICOMDataObject set;
    TransferSyntaxCodec codec;
    EXPECT_EQ(codec.ParseExplicitLittleEndian(buffer, &set), 0) << "the last length is a lie";
    EXPECT_EQ(set.GetVR(0x7FE0, 0x0010)->GetText(), pixels);
    EXPECT_EQ(set.GetVR(0x0040, 0xA730)->GetItem(0)->GetVR(0x0008, 0x0060)->GetText(), "MR");
    EXPECT_EQ(set.GetVR(0x7FE1, 0x0010), nullptr);
}
