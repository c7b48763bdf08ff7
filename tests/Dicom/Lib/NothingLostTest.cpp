// Cases in which data was once lost silently between a stream, a data set and a file.
#include "../../FolderTest.h"
#include "DataSetBytes.h"

#include <Korvane/Dicom.h>

namespace {

class NothingLost : public FolderTest {
protected:
    int Parse(int syntax, const Bytes& bytes) {
        m_Set.Reset();
        MemoryInputBuffer buffer(bytes.data(), bytes.size());
        return m_Codec.ParseStream(syntax, buffer, &m_Set, kParseAll);
    }

    std::string TypeAt(const DICOMObject& set, std::uint16_t group, std::uint16_t element) const {
        const VR* const found = set.GetVR(group, element);
        if (found == nullptr) return "absent";
        return {static_cast<char>(found->m_TypeCode >> 8), static_cast<char>(found->m_TypeCode & 0xFF)};
    }

    static std::unique_ptr<VR> Untyped(std::uint16_t group, std::uint16_t element, const std::string& value) {
        std::unique_ptr<VR> made(MakeText(group, element, "UN", value));
        made->m_TypeCode = 0;
        return made;
    }

    DICOMDataObject m_Set;
    TransferSyntaxCodec m_Codec{&SharedPublicDictionary()};
};

const std::string kMinus1000("\x18\xFC", 2);

DICOMDataObject* WithCompressedPixels() {
    auto* const item = new DICOMDataObject;
    auto* const pixels = new VR(0x7FE0, 0x0010, 0, 0);
    AppendFragment(*pixels, "", 0);
    AppendFragment(*pixels, "abcd", 4);
    item->Push(pixels);
    return item;
}

}  // namespace

TEST_F(NothingLost, SavingNamesTheTypesOfAllElements) {
    const std::string path = Path("a.dcm");
    for (const bool hasCodec : {false, true}) {
        DICOMDataObject set;
        set.Push(Untyped(0x0002, 0x0016, "SENDER").release());
        set.Push(Untyped(0x0008, 0x0016, "1.2.840.10008.5.1.4.1.1.2").release());
        set.Push(Untyped(0x0009, 0x0010, "SOMEBODY").release());
        set.Push(Untyped(0x0009, 0x1001, "value ").release());
        set.Push(Untyped(0x0018, 0x9810, kMinus1000).release());
        set.Push(Untyped(0x0028, 0x0103, std::string("\1\0", 2)).release());
        set.Push(new VR(0x0040, 0x0260, 0, 0));
        auto* const item = new DICOMDataObject;
        item->Push(Untyped(0x0008, 0x0100, "T-11501 ").release());
        set.PushItemToLast(item);
        ASSERT_EQ(SaveDICOMFile(path.c_str(), 3, &set, hasCodec ? &m_Codec : nullptr), 1);
        TransferSyntaxCodec plain;  // knows what the file says alone
        DICOMFileReader reader(plain);
        const auto read = reader.Load(path.c_str());
        ASSERT_TRUE(read != nullptr && reader.IsComplete());
        std::string types;
        for (const auto& [group, element] : {std::pair<std::uint16_t, std::uint16_t>{0x0002, 0x0016},
                                             {0x0009, 0x0010},
                                             {0x0009, 0x1001},
                                             {0x0018, 0x9810},
                                             {0x0040, 0x0260}}) {
            types += TypeAt(*read, group, element) + " ";
        }
        EXPECT_EQ(types, "AE LO UN SS SQ ");
        EXPECT_EQ(TypeAt(*read->GetVR(0x0040, 0x0260)->GetItem(0), 0x0008, 0x0100), "SH");
        EXPECT_EQ(read->GetVR(0x0009, 0x1001)->GetText(), "value ");
    }
}

TEST_F(NothingLost, WhatCannotBeWrittenStaysInTheDataSet) {
    m_Set.Push(MakeText(0x0008, 0x0060, "CS", "CT"));
    EXPECT_EQ(SaveDICOMFile(Path("none/a.dcm").c_str(), 3, &m_Set, &m_Codec), 0);
    EXPECT_NE(m_Set.GetVR(0x0008, 0x0060), nullptr);
    // Compressed pixels of an icon are noticed like those of the image.
    m_Set.Push(new VR(0x0088, 0x0200, 0, 0));
    m_Set.PushItemToLast(WithCompressedPixels());
    for (const int mode : {1, 2, 3}) {
        EXPECT_EQ(SaveDICOMFile(Path("a.dcm").c_str(), mode, &m_Set, &m_Codec), 0) << mode;
        EXPECT_FALSE(std::filesystem::exists(Path("a.dcm")));
    }
    m_Set.Take(0x0002, 0x0010);
    m_Set.Push(MakeText(0x0002, 0x0010, "UI", "1.2.840.10008.1.2.4.50"));
    EXPECT_EQ(SaveDICOMFile(Path("a.dcm").c_str(), 3, &m_Set, &m_Codec), 1);
}

TEST_F(NothingLost, PixelRepresentationDecidesWhereverItStands) {
    const Bytes item =
        Join({le.Implicit(0x0028, 0x0103, std::string("\0\0", 2)), le.Implicit(0x0028, 0x0106, kMinus1000)});
    const Bytes other = le.Implicit(0x0028, 0x0106, kMinus1000);
    const Bytes items =
        Join({le.Item(static_cast<unsigned>(item.size())), item, le.Item(static_cast<unsigned>(other.size())), other});
    const Bytes stream =
        Join({le.Tag(0x0008, 0x1140), le.U32(static_cast<unsigned>(items.size())), items,
              le.Implicit(0x0018, 0x9810, kMinus1000), le.Implicit(0x0028, 0x0103, std::string("\1\0", 2)),
              le.Implicit(0x0028, 0x0106, kMinus1000), le.Implicit(0x0028, 0x0010, std::string("\0\2", 2))});
    ASSERT_EQ(Parse(kImplicitLittleEndian, stream), 1);
    const VR& sequence = *m_Set.GetVR(0x0008, 0x1140);
    EXPECT_EQ(TypeAt(m_Set, 0x0018, 0x9810) + TypeAt(m_Set, 0x0028, 0x0106) + TypeAt(m_Set, 0x0028, 0x0010), "SSSSUS");
    EXPECT_EQ(TypeAt(*sequence.GetItem(0), 0x0028, 0x0106), "US");  // has a Pixel Representation of its own
    EXPECT_EQ(TypeAt(*sequence.GetItem(1), 0x0028, 0x0106), "SS");
}

TEST_F(NothingLost, StreamsThatEndInsideASequenceAreToldFromWholeOnes) {
    const Bytes whole = Join({le.Long(0x0040, 0xA730, "SQ", 0xFFFFFFFF), le.Item(0xFFFFFFFF),
                              le.Short(0x0008, 0x0100, "SH", "T-11501 "), le.ItemEnds(), le.SequenceEnds()});
    ASSERT_EQ(Parse(kExplicitLittleEndian, whole), 1);
    EXPECT_TRUE(m_Codec.WasWhole());
    for (const std::size_t length : {whole.size() - 8, whole.size() - 16, whole.size() - 32, whole.size() - 40}) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(Parse(kExplicitLittleEndian, cut), 1) << length;
        EXPECT_FALSE(m_Codec.WasWhole()) << length;
        DICOMFileReader reader(m_Codec);
        reader.LoadMemory(cut.data(), cut.size());
        EXPECT_FALSE(reader.IsComplete()) << length;
    }
}

TEST_F(NothingLost, ValuesOutliveItemsThatDoNotBelongToThem) {
    const Bytes stream =
        Join({le.Short(0x0008, 0x0060, "CS", "CT"), le.Item(0), le.Short(0x0008, 0x0070, "LO", "ABCD")});
    ASSERT_EQ(Parse(kExplicitLittleEndian, stream), 1);
    EXPECT_FALSE(m_Codec.WasWhole());
    EXPECT_EQ(m_Set.GetVR(0x0008, 0x0060)->GetText(), "CT");
    EXPECT_EQ(m_Set.GetVR(0x0008, 0x0060)->GetItemCount(), 0U);
    EXPECT_NE(m_Set.GetVR(0x0008, 0x0070), nullptr);
}

TEST_F(NothingLost, QuestionsDoNotDestroyTheValuesOfUnknownElements) {
    const Bytes value = Join({le.Item(10), le.Implicit(0x0008, 0x0060, "CT")});
    const Bytes stream = Join({le.Long(0x0008, 0x1140, "UN", static_cast<unsigned>(value.size())), value});
    for (const int syntax : {kImplicitLittleEndian, kExplicitLittleEndian, kExplicitBigEndian}) {
        ASSERT_EQ(Parse(kExplicitLittleEndian, stream), 1);
        SharedPublicDictionary().GetString(m_Set, 0x0008, 0x1140, 0);
        MemoryOutputBuffer out;
        ASSERT_EQ(m_Codec.EncodeStream(syntax, out, &m_Set), 1);
        const Bytes& bytes = out.GetBytes();
        EXPECT_NE(std::search(bytes.begin(), bytes.end(), value.begin(), value.end()), bytes.end()) << syntax;
    }
}

TEST_F(NothingLost, WhatIsWrittenCanBeRead) {
    for (const int levels : {256, 257}) {
        DICOMDataObject set;
        DICOMObject* inner = &set;
        for (int level = 0; level < levels; ++level) {
            auto* const item = new DICOMDataObject;
            inner->Push(new VR(0x0040, 0xA730, 0, 0));
            inner->PushItemToLast(item);
            inner = item;
        }
        inner->Push(MakeText(0x0008, 0x0060, "CS", "CT"));
        MemoryOutputBuffer out;
        const int written = m_Codec.EncodeStream(kImplicitLittleEndian, out, &set);
        EXPECT_EQ(written, levels == 256 ? 1 : 0);
        if (written != 0) {
            EXPECT_EQ(Parse(kImplicitLittleEndian, out.GetBytes()), 1);
        }
    }
}
