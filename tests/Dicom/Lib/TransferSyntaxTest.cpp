#include "DataSetBytes.h"

#include <gtest/gtest.h>
#include <random>

namespace {

class TransferSyntax : public testing::Test {
protected:
    int Parse(int syntax, const Bytes& bytes, int option = kParseAll) {
        m_Set.Reset();
        MemoryInputBuffer buffer(bytes.data(), bytes.size());
        const int result = m_Codec.ParseStream(syntax, buffer, &m_Set, option);
        m_Left = buffer.GetRemaining();
        return result;
    }

    // Encodes a copy of the set.
    Bytes Encode(int syntax) {
        const std::unique_ptr<DICOMObject> copy(m_Set.Clone(true));
        MemoryOutputBuffer buffer;
        EXPECT_EQ(m_Codec.EncodeStream(syntax, buffer, copy.get()), 1);
        EXPECT_EQ(copy->GetFirst(), nullptr) << "encoding drains the set";
        return buffer.GetBytes();
    }

    DICOMDataObject m_Set;
    TransferSyntaxCodec m_Codec{&PublicDictionary()};
    std::uint64_t m_Left = 0;
};

// Sees each element: the parser must hand them over one by one.
struct Watching : DICOMDataObject {
    int Push(VR* element) override {
        ++seen;
        return DICOMDataObject::Push(element);
    }
    int seen = 0;
};

void ExpectSame(const DICOMObject& one, const DICOMObject& other) {
    const VR* b = other.GetFirst();
    for (const VR* a = one.GetFirst(); a != nullptr; a = one.GetNext(a), b = other.GetNext(b)) {
        ASSERT_NE(b, nullptr);
        ASSERT_EQ(a->GetTag(), b->GetTag());
        EXPECT_EQ(a->m_TypeCode, b->m_TypeCode);
        EXPECT_EQ(a->m_StreamOffset, b->m_StreamOffset);
        EXPECT_EQ(a->m_Length, b->m_Length);
        EXPECT_EQ(a->m_bOwnsData, b->m_bOwnsData);
        EXPECT_EQ(a->m_pData == nullptr, b->m_pData == nullptr);
        EXPECT_EQ(a->GetText(), b->GetText());
    }
    EXPECT_EQ(b, nullptr);
}

// Elements of all lengths with some that come twice, out of order, with long headers, or decide about others.
Bytes MixedStream(std::mt19937& random) {
    Bytes bytes = le.Short(0x0002, 0x0010, "UI", "1.2.840.10008.1.2.1");
    for (unsigned i = 0; i < 60; ++i) {
        const unsigned group = i % 19 == 18 ? 0x0008 : 0x0010 + i / 7 * 2;
        const std::string value(random() % 5 == 0 ? random() % 600 : random() % 25, static_cast<char>('a' + i % 26));
        bytes = i % 11 == 10 ? Join({bytes, le.Long(group, i, "OB", static_cast<unsigned>(value.size())), Text(value)})
                             : Join({bytes, le.Short(group, i, "LO", value)});
    }
    return Join(
        {bytes, le.Short(0x0028, 0x0103, "US", std::string("\1\0", 2)), le.Short(0x8001, 0x0010, "LO", "high")});
}

}  // namespace

TEST_F(TransferSyntax, PlainElementsAreParsedAsOthersAre) {
    std::mt19937 random(19);
    for (int round = 0; round < 20; ++round) {
        const Bytes whole = MixedStream(random);
        for (std::size_t cut = 0; cut < 80; ++cut) {
            const Bytes bytes(whole.begin(), whole.end() - static_cast<std::ptrdiff_t>(cut));
            const int plain = Parse(kExplicitLittleEndian, bytes);
            Watching watching;
            MemoryInputBuffer buffer(bytes.data(), bytes.size());
            ASSERT_EQ(m_Codec.ParseStream(kExplicitLittleEndian, buffer, &watching, kParseAll), plain);
            ASSERT_EQ(buffer.GetRemaining(), m_Left);
            EXPECT_GT(watching.seen, 50);
            ExpectSame(m_Set, watching);
        }
    }
}

TEST_F(TransferSyntax, NestedSequencesOfBothLengthFormsRoundTripInEverySyntax) {
    const Bytes inner = Join({le.Short(0x0008, 0x0100, "SH", "T-11501 ")});
    const Bytes item = Join({le.Long(0x0040, 0xA043, "SQ", static_cast<unsigned>(inner.size()) + 8),
                             le.Item(static_cast<unsigned>(inner.size())), inner});
    const Bytes stream =
        Join({le.Short(0x0008, 0x0005, "CS", "ISO_IR 100"), le.Long(0x0008, 0x1140, "SQ", 0),
              le.Long(0x0040, 0xA730, "SQ", 0xFFFFFFFF), le.Item(static_cast<unsigned>(item.size())), item,
              le.Item(0xFFFFFFFF), le.Short(0x0028, 0x0010, "US", std::string("\x00\x02", 2)), le.ItemEnds(),
              le.SequenceEnds(), le.Short(0x0054, 0x0010, "US", std::string("\x01\x00", 2))});
    ASSERT_EQ(Parse(kExplicitLittleEndian, stream), 1);
    const std::string listing = Listing(m_Set);
    EXPECT_NE(listing.find("T-11501"), std::string::npos);
    EXPECT_EQ(m_Set.GetVR(0x0040, 0xA730)->GetItemCount(), 2U);
    EXPECT_EQ(m_Set.GetVR(0x0008, 0x1140)->m_pSequence, nullptr);
    EXPECT_EQ(m_Set.GetVR(0x0040, 0xA730)->GetItem(1)->GetUINT16(0x0028, 0x0010), 512);
    for (const int syntax : {kImplicitLittleEndian, kExplicitLittleEndian, kExplicitBigEndian}) {
        const Bytes bytes = Encode(syntax);
        ASSERT_EQ(Parse(syntax, bytes), 1);
        EXPECT_EQ(Listing(m_Set), listing);
        EXPECT_EQ(Encode(syntax), bytes);
    }
    const Bytes encoded = Encode(kExplicitBigEndian);
    const Bytes end =
        Join({be.Item(0xFFFFFFFF), be.Short(0x0028, 0x0010, "US", std::string("\x02\0", 2)), be.ItemEnds(),
              be.SequenceEnds(), be.Short(0x0054, 0x0010, "US", std::string("\0\x01", 2))});
    EXPECT_TRUE(std::equal(end.rbegin(), end.rend(), encoded.rbegin())) << "undefined length, whatever was read";
}

TEST_F(TransferSyntax, BigEndianValuesAreSwappedByTheirType) {
    const Bytes stream = Join(
        {be.Short(0x0008, 0x0060, "CS", "CT"), be.Short(0x0018, 0x9087, "FD", std::string("\x3F\xF8\0\0\0\0\0\0", 8)),
         be.Short(0x0020, 0x5000, "AT", std::string("\x00\x08\x00\x60", 4)), be.Long(0x5400, 0x1010, "OB", 2),
         Text("ab"), be.Long(0x7FE0, 0x0010, "OW", 4), Text("abcd")});
    ASSERT_EQ(Parse(kExplicitBigEndian, stream), 1);
    EXPECT_EQ(m_Set.GetVR(0x0020, 0x5000)->GetText(), std::string_view("\x08\x00\x60\x00", 4));
    EXPECT_EQ(ValueText(*m_Set.GetVR(0x0018, 0x9087)), "1.5");
    EXPECT_EQ(m_Set.GetVR(0x5400, 0x1010)->GetText(), "ab");
    EXPECT_EQ(m_Set.GetVR(0x7FE0, 0x0010)->GetText(), "badc");
    EXPECT_EQ(Encode(kExplicitBigEndian), stream);
}

TEST_F(TransferSyntax, MetaInformationInsideAnImplicitStreamHasExplicitTypes) {
    const Bytes stream =
        Join({le.Short(0x0002, 0x0010, "UI", std::string("1.2.840\0", 8)), le.Implicit(0x0008, 0x0060, "MR"),
              le.Implicit(0x0028, 0x0103, std::string("\x01\x00", 2)),
              le.Implicit(0x0028, 0x0106, std::string("\xFE\xFF", 2)), le.Implicit(0x0099, 0x1001, "odd")});
    ASSERT_EQ(Parse(kImplicitLittleEndian, stream), 1);
    EXPECT_EQ(m_Set.GetVR(0x0002, 0x0010)->m_TypeCode, TypeCode("UI"));
    EXPECT_EQ(m_Set.GetVR(0x0008, 0x0060)->m_TypeCode, TypeCode("CS"));
    EXPECT_EQ(m_Set.GetVR(0x0028, 0x0106)->m_TypeCode, TypeCode("SS")) << "US or SS, decided by (0028,0103)";
    EXPECT_EQ(m_Set.GetVR(0x0099, 0x1001)->m_Length, 4U);
    EXPECT_EQ(m_Set.GetVR(0x0099, 0x1001)->GetText(), std::string_view("odd\0", 4));
    EXPECT_EQ(m_Set.GetVR(0x0099, 0x1001)->m_StreamOffset, stream.size() - 11);
    // Written again: without the meta information, the unknown element in the implicit syntax only.
    const Bytes explicitBytes = Encode(kExplicitLittleEndian);
    const Bytes implicitBytes = Encode(kImplicitLittleEndian);
    EXPECT_EQ(Bytes(implicitBytes.end() - 4, implicitBytes.end()), (Bytes{'o', 'd', 'd', 0}));
    ASSERT_EQ(Parse(kExplicitLittleEndian, explicitBytes), 1);
    EXPECT_EQ(m_Set.GetVR(0x0002, 0x0010), nullptr);
    EXPECT_EQ(m_Set.GetVR(0x0099, 0x1001), nullptr);
    EXPECT_EQ(m_Set.GetUINT16(0x0028, 0x0106), 0xFFFE);
}

TEST_F(TransferSyntax, GroupLengthsAreDroppedButTheCommandGroupsInTheImplicitSyntax) {
    m_Set.Push(MakeText(0x0000, 0x0000, "UL", "abcd"));
    m_Set.Push(MakeText(0x0008, 0x0000, "UL", "abcd"));
    m_Set.Push(MakeText(0x0002, 0x0002, "UI", "1.2."));
    EXPECT_EQ(Encode(kImplicitLittleEndian), Join({le.Implicit(0, 0, "abcd")}));
    EXPECT_EQ(Encode(kExplicitLittleEndian), Bytes());
}

TEST_F(TransferSyntax, OddLengthsArePaddedAndLongValuesOutgrowTheShortForm) {
    auto* const odd = MakeText(0x0010, 0x0010, "PN", "abcd");
    odd->m_Length = 3;
    m_Set.Push(odd);
    m_Set.Push(MakeText(0x0018, 0x1000, "LO", std::string(65536, 'x')));
    m_Set.Push(MakeText(0x7FE0, 0x0010, "OX", std::string(2, 'p')));
    const Bytes expected =
        Join({le.Short(0x0010, 0x0010, "PN", std::string("abc\0", 4)), le.Long(0x0018, 0x1000, "UN", 65536),
              Text(std::string(65536, 'x')), le.Long(0x7FE0, 0x0010, "OW", 2), Text("pp")});
    EXPECT_EQ(Encode(kExplicitLittleEndian), expected);
}

TEST_F(TransferSyntax, EncapsulatedPixelDataKeepsItsFragments) {
    const Bytes stream = Join({le.Long(0x7FE0, 0x0010, "OB", 0xFFFFFFFF), le.Item(4), le.U32(0), le.Item(0), le.Item(6),
                               Text("abcdef"), le.SequenceEnds(), le.Long(0xFFFC, 0xFFFC, "OB", 2), Text("zz")});
    ASSERT_EQ(Parse(kExplicitLittleEndian, stream), 1);
    VR* const pixels = m_Set.GetVR(0x7FE0, 0x0010);
    ASSERT_EQ(pixels->GetItemCount(), 3U);
    EXPECT_TRUE(IsEncapsulated(pixels));
    EXPECT_EQ(GetFragment(*pixels, 1), nullptr);
    EXPECT_EQ(GetFragment(*pixels, 2)->GetText(), "abcdef");
    EXPECT_EQ(AppendFragment(*pixels, "xyz", 3), 1);
    const std::unique_ptr<VR> trailing(m_Set.Pop());
    EXPECT_EQ(trailing->m_Group, 0xFFFC);
    const Bytes expected =
        Join({Bytes(stream.begin(), stream.end() - 22), le.Item(4), Text(std::string("xyz\0", 4)), le.SequenceEnds()});
    EXPECT_EQ(Encode(kExplicitLittleEndian), expected);
    const Bytes implicitBytes = Encode(kImplicitLittleEndian);
    ASSERT_EQ(Parse(kImplicitLittleEndian, implicitBytes), 1);
    EXPECT_EQ(GetFragment(*m_Set.GetVR(0x7FE0, 0x0010), 3)->GetText(), std::string_view("xyz\0", 4));
    const Bytes unfinished(stream.begin(), stream.begin() + 32);
    EXPECT_EQ(Parse(kExplicitLittleEndian, unfinished), 0);
}

TEST_F(TransferSyntax, AnUnknownElementOfUndefinedLengthHoldsImplicitItems) {
    for (const bool big : {false, true}) {
        const Bytes items = Join({le.Item(0xFFFFFFFF), le.Implicit(0x0028, 0x0010, std::string("\x00\x02", 2)),
                                  le.ItemEnds(), le.SequenceEnds()});
        const Bytes stream = Join({Writer{big}.Long(0x0099, 0x1001, "UN", 0xFFFFFFFF), items,
                                   Writer{big}.Short(0x0099, 0x1002, "LO", "next")});
        ASSERT_EQ(Parse(big ? kExplicitBigEndian : kExplicitLittleEndian, stream), 1);
        EXPECT_EQ(m_Set.GetVR(0x0099, 0x1001)->GetItem(0)->GetUINT16(0x0028, 0x0010), 512);
        EXPECT_EQ(m_Set.GetVR(0x0099, 0x1002)->GetText(), "next");
    }
}

TEST_F(TransferSyntax, DelimitersAndTheHookEndAParseWithSuccess) {
    const Bytes delimiter = Join({le.ItemEnds(), le.Short(0x0008, 0x0060, "CS", "CT")});
    EXPECT_EQ(Parse(kExplicitLittleEndian, delimiter), 1);
    EXPECT_EQ(m_Set.GetFirst(), nullptr);
    EXPECT_EQ(m_Left, 10U);
    EXPECT_EQ(Parse(kImplicitLittleEndian, delimiter), 1);
    for (const int syntax : {kExplicitLittleEndian, kImplicitLittleEndian}) {
        EXPECT_EQ(Parse(syntax, Join({le.Tag(0xFFFE, 0xE123), le.U32(0)})), 0);
    }
    EXPECT_EQ(Parse(kExplicitLittleEndian, Join({le.Item(0)})), 0) << "an item without a sequence";

    const Bytes nested = Join({le.Long(0x7FE0, 0x0010, "OW", 2), Text("in")});
    const Bytes stream = Join({le.Long(0x0088, 0x0200, "SQ", 0xFFFFFFFF), le.Item(0xFFFFFFFF), nested, le.ItemEnds(),
                               le.SequenceEnds(), le.Long(0x7FE0, 0x0010, "OW", 4), Text("rest")});
    EXPECT_EQ(Parse(kExplicitLittleEndian, stream, kStopBeforePixelData), 1);
    EXPECT_TRUE(m_Codec.HasStopped());
    EXPECT_EQ(m_Codec.GetStoppedLength(), 4U);
    EXPECT_EQ(m_Left, 4U);
    EXPECT_EQ(m_Set.GetVR(0x7FE0, 0x0010), nullptr);
    EXPECT_EQ(m_Set.GetVR(0x0088, 0x0200)->GetItem(0)->GetVR(0x7FE0, 0x0010)->GetText(), "in");
    MemoryInputBuffer buffer(stream.data(), stream.size());
    EXPECT_EQ(m_Codec.ParseExplicitLittleEndian(buffer, &m_Set), 1) << "the option does not stay";
    EXPECT_EQ(m_Set.GetVR(0x7FE0, 0x0010)->GetText(), "rest");
}
