// Frames read one by one are those of the whole image, however they are stored.
#include "../Refuses.h"
#include "FolderTest.h"
#include "MadeData.h"

#include <Korvane/kit/dataset/Convert.h>
#include <Korvane/kit/dataset/Frames.h>
#include <Korvane/kit/dataset/LeftValues.h>
#include <Korvane/kit/dataset/Toolkit.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

using namespace korvane;

namespace {

using Bytes = std::vector<unsigned char>;

DataSet Image(unsigned rows, unsigned columns, unsigned bits, unsigned frames) {
    DataSet set;
    set.Set("SOPClassUID", "1.2.840.10008.5.1.4.1.1.7.3");
    set.Set("SOPInstanceUID", "1.2.3.4");
    set.Set("SamplesPerPixel", 1);
    set.Set("PhotometricInterpretation", "MONOCHROME2");
    set.Set("Rows", rows);
    set.Set("Columns", columns);
    set.Set("BitsAllocated", bits);
    set.Set("BitsStored", bits);
    set.Set("HighBit", bits - 1);
    set.Set("PixelRepresentation", 0);
    set.Set("NumberOfFrames", frames);
    return set;
}

Bytes Part(const Bytes& all, std::size_t from, std::size_t count) {
    const auto first = all.begin() + static_cast<std::ptrdiff_t>(from);
    return {first, first + static_cast<std::ptrdiff_t>(count)};
}

Bytes Table(std::initializer_list<std::uint64_t> entries, std::size_t width) {
    Bytes bytes;
    for (const std::uint64_t entry : entries) {
        for (std::size_t i = 0; i < width; ++i) bytes.push_back(static_cast<unsigned char>(entry >> (8 * i)));
    }
    return bytes;
}

class FramesTest : public FolderTest {
protected:
    // Three frames of the fragments A B, C, D E, of which C is as large as files leave in place.
    std::string Compressed(const Bytes& basic, const Bytes& extended, const Bytes& lengths, const char* marks) {
        DataSet set = Image(8, 8, 8, 3);
        set.Set("TransferSyntaxUID", "1.2.840.10008.1.2.4.90");
        if (!extended.empty()) set.SetBytes("ExtendedOffsetTable", extended, "OV");
        if (!lengths.empty()) set.SetBytes("7FE00002", lengths, "OV");
        std::vector<Bytes> all = {basic};
        for (std::size_t i = 0; i < m_Fragments.size(); ++i) {
            all.push_back(m_Fragments[i]);
            if (marks[i] == 'x') std::copy_n("\xFF\x4F\xFF\x51", 4, all.back().begin());
        }
        WithFragments(std::move(set), all).Save(Path("made"));
        return Path("made");
    }

    const std::vector<Bytes> m_Fragments = {Pattern(100, 1), Pattern(50, 2), Pattern(200'000, 3), Pattern(10, 4),
                                            Pattern(2000, 5)};
};

TEST_F(FramesTest, NativeFramesOfEveryWidth) {
    for (const char* const syntax : {"explicit", "big"}) {
        for (const auto& [bits, rows, count] : {std::tuple{8U, 201U, 9U}, {16U, 200U, 5U}, {32U, 100U, 3U}}) {
            const std::size_t size = std::size_t{rows} * 150 * bits / 8;
            DataSet set = Image(rows, 150, bits, count);
            const Bytes all = Pattern(size * count);
            set.SetBytes("PixelData", all, bits == 8 ? "OB" : "OW");
            set.Save(Path("made"), {.syntax = syntax});
            const FrameReader frames(Path("made"));
            ASSERT_EQ(frames.GetCount(), count);
            EXPECT_TRUE(frames.GetFindings().empty());
            for (std::size_t i = 0; i < count; ++i) {
                EXPECT_EQ(frames.ReadStored(i), Part(all, i * size, size)) << bits << ' ' << i;
            }
            const DataSet last = frames.Read(count - 1);
            EXPECT_TRUE(std::ranges::equal(last.Bytes("PixelData").first(size), Part(all, (count - 1) * size, size)));
            EXPECT_EQ(last.Integer("NumberOfFrames"), 1);
            Refuses([&frames, past = count] { frames.ReadStored(past); }, ErrorKind::WrongArgument);
        }
    }
}

TEST_F(FramesTest, FramesOfBitsBeginAnywhere) {
    DataSet set = Image(3, 7, 1, 30000);
    const Bytes all = Pattern(21 * 30000 / 8 + 1);
    set.SetBytes("PixelData", all, "OB");
    set.Save(Path("made"));
    const FrameReader frames(Path("made"));
    for (const std::size_t frame : {0U, 1U, 5U, 29999U}) {
        const Bytes stored = frames.ReadStored(frame);
        ASSERT_EQ(stored.size(), 3U);
        for (std::size_t bit = 0; bit < 24; ++bit) {
            const std::size_t at = frame * 21 + bit;
            const unsigned expected = bit < 21 ? all[at / 8] >> (at % 8) & 1U : 0;
            EXPECT_EQ(stored[bit / 8] >> (bit % 8) & 1U, expected) << frame << ' ' << bit;
        }
    }
}

TEST_F(FramesTest, CompressedFramesByTablesAndMarks) {
    const Bytes none;
    // Offsets count item headers of 8 bytes: A at 0, C at 166, D at 200174.
    const Bytes basic = Table({0, 166, 200174}, 4);
    const Bytes extended = Table({0, 166, 200174}, 8);
    const Bytes wrong = Table({0, 165, 4000000000}, 4);
    const Bytes joined = Part(m_Fragments[0], 0, 100);
    for (const auto& [table, wide, marks, findings] : {std::tuple{basic, none, ".....", 0U},
                                                       {none, extended, ".....", 0U},
                                                       {none, none, "x.xx.", 0U},
                                                       {wrong, extended, ".....", 1U},
                                                       {wrong, none, "x.xx.", 1U}}) {
        const FrameReader frames(Compressed(table, wide, Table({150, 199'999, 2010}, 8), marks));
        ASSERT_EQ(frames.GetCount(), 3U);
        EXPECT_EQ(frames.GetFindings().size(), findings);
        const Bytes first = frames.ReadStored(0);
        EXPECT_EQ(first.size(), 150U);
        EXPECT_EQ(Part(first, 100, 50), m_Fragments[1]);
        const Bytes second = frames.ReadStored(1);
        EXPECT_EQ(Part(second, 4, 199'995), Part(m_Fragments[2], 4, 199'995));
        EXPECT_EQ(second.size(), 199'999U);  // as the lengths tell
        EXPECT_EQ(Part(frames.ReadStored(2), 10, 2000), m_Fragments[4]);
    }
    Refuses([&] { FrameReader(Compressed(wrong, none, none, ".....")); }, ErrorKind::Damaged);
}

TEST_F(FramesTest, ADecodedFrameIsThatOfTheWhole) {
    const auto words = GetSyntaxWords();
    if (!CodecManager::CanEncode("1.2.840.10008.1.2.5")) GTEST_SKIP() << "no codec module";
    DataSet set = Image(64, 64, 16, 4);
    set.SetBytes("PixelData", Pattern(64 * 64 * 2 * 4), "OW");
    set.Set("PerFrameFunctionalGroupsSequence[0].FrameContentSequence[0].StackID", "0");
    for (int i = 1; i < 4; ++i) {
        const std::string item = "PerFrameFunctionalGroupsSequence[" + std::to_string(i) + "].";
        set.Set(item + "FrameContentSequence[0].StackID", std::to_string(i));
    }
    set.Save(Path("rle"), {.syntax = "rle"});
    const FrameReader frames(Path("rle"));
    for (std::size_t i = 0; i < 4; ++i) {
        const DataSet frame = frames.Read(i);
        EXPECT_TRUE(std::ranges::equal(frame.Bytes("PixelData"), set.Bytes("PixelData").subspan(i * 8192, 8192)));
        EXPECT_EQ(frame.Text("PerFrameFunctionalGroupsSequence[0].FrameContentSequence[0].StackID"), std::to_string(i));
        EXPECT_EQ(frame.Items("PerFrameFunctionalGroupsSequence").size(), 1U);
        EXPECT_EQ(frame.Text("TransferSyntaxUID"), "1.2.840.10008.1.2.1");
    }
}

// Also of a data set that is read a second time since a type in it is none.
TEST_F(FramesTest, GroupsThatAreNotWantedAreNotThere) {
    const std::string frames = "PerFrameFunctionalGroupsSequence";
    DataSet set = Image(4, 4, 16, 3);
    set.SetBytes("PixelData", Pattern(4 * 4 * 2 * 3), "OW");
    set.Set("ImageComments", "type");
    set.Set("SharedFunctionalGroupsSequence[0].FrameAnatomySequence[0].FrameLaterality", "L");
    for (int i = 0; i < 3; ++i) {
        set.Set(frames + "[" + std::to_string(i) + "].FrameContentSequence[0].StackID", std::to_string(i));
    }
    set.Save(Path("whole"));
    std::ifstream in(Path("whole"), std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), {}};
    bytes.replace(bytes.find(std::string("LT\4\0type", 8)), 2, "l?");
    std::ofstream(Path("damaged"), std::ios::binary) << bytes;
    for (const char* const name : {"whole", "damaged"}) {
        const auto read = [&](const KeptGroups& groups) {
            DataSetFile file = ReadDataSetFile(Path(name), kStopBeforePixelData, {}, {}, 0, groups);
            return DataSetParts::Join(file);
        };
        EXPECT_EQ(read(KeptGroups::All()).Items(frames).size(), 3U);
        const DataSet second = read(KeptGroups::OfFrame(1));
        EXPECT_EQ(second.Items("SharedFunctionalGroupsSequence").size(), 1U);
        ASSERT_EQ(second.Items(frames).size(), 1U);
        EXPECT_EQ(second.Text(frames + "[0].FrameContentSequence[0].StackID"), "1");
        EXPECT_TRUE(read(KeptGroups::OfFrame(3)).Items(frames).empty());
        const DataSet none = read(KeptGroups::None());
        EXPECT_FALSE(none.Has(frames) || none.Has("SharedFunctionalGroupsSequence"));
        EXPECT_EQ(none.Text("Rows"), "4");
    }
}

TEST_F(FramesTest, WhatIsNotThereIsTold) {
    DataSet set = Image(100, 100, 16, 10);
    Refuses(
        [&] {
            set.Save(Path("none"));
            FrameReader(Path("none"));
        },
        ErrorKind::Unsupported);
    set.SetBytes("PixelData", Pattern(100 * 100 * 2 * 7 + 100), "OW");
    set.Save(Path("short"));
    const FrameReader frames(Path("short"));
    EXPECT_EQ(frames.GetCount(), 7U);
    ASSERT_EQ(frames.GetFindings().size(), 1U);
    EXPECT_EQ(frames.GetFindings()[0].kind, FindingKind::FramesMissing);
    std::filesystem::resize_file(Path("short"), 100'000);
    Refuses([&] { frames.ReadStored(1); }, ErrorKind::Disk);
    EXPECT_EQ(FrameReader(Path("short")).GetCount(), 4U);
}

}  // namespace
