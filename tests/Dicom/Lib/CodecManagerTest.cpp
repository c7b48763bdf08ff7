// The folder of this program has a module "DcmCodec", made of TestModule.cpp, and a list "DcmCodecMgr.ini".
#include "DataSetBytes.h"

#include <Korvane/platform/DynamicModule.h>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

constexpr char kXor[] = "1.2.3.1";

// Rows of 5 pixels; the frames' bytes are the pixels.
std::unique_ptr<DICOMDataObject> Image(std::uint16_t rows, const char* frames, const std::string& pixels) {
    auto set = std::make_unique<DICOMDataObject>();
    set->Push(MakeText(0x0002, 0x0010, "UI", std::string(kExplicitLittleEndianUid)));
    set->Push(MakeText(0x0028, 0x0004, "CS", "Monochrome2 "));  // nobody's codec has to mind
    set->Push(MakeText(0x0028, 0x0008, "IS", frames));
    const std::uint16_t numbers[][2] = {{2, 1},     {0x10, rows}, {0x11, 5}, {0x100, 8},
                                        {0x101, 8}, {0x102, 7},   {0x103, 0}};
    for (const auto& [element, value] : numbers) set->Push(MakeU16(0x0028, element, value));
    set->Push(MakeText(0x7FE0, 0x0010, "OB", pixels));
    return set;
}

// Makes the pixel data encapsulated: offset table, then fragments.
void Encapsulate(DICOMObject& set, const std::string& table, const std::vector<std::string>& fragments) {
    ReplaceText(set, tags::TransferSyntaxUID, TypeCode("UI"), kXor);
    set.Take(0x7FE0, 0x0010);
    auto* const pixels = new VR(0x7FE0, 0x0010, 0, 0);
    AppendFragment(*pixels, table.data(), static_cast<std::uint32_t>(table.size()));
    for (const std::string& one : fragments) {
        AppendFragment(*pixels, one.data(), static_cast<std::uint32_t>(one.size()));
    }
    set.Push(pixels);
}

std::string Entries(std::initializer_list<std::uint32_t> entries) {
    std::string table;
    for (const std::uint32_t entry : entries) table.append(reinterpret_cast<const char*>(&entry), sizeof entry);
    return table;
}

std::string TextOf(const DICOMObject& set, std::uint16_t group, std::uint16_t element) {
    const VR* const found = set.GetVR(group, element);
    return found != nullptr ? std::string(found->GetText()) : "none";
}

}  // namespace

TEST(CodecManager, FindsWhatModulesAndTheListOffer) {
    EXPECT_TRUE(CodecManager::Init());
    const auto isKnown = [](const std::string& uid) {
        const bool found = CodecManager::FindProps(uid) != nullptr;
        EXPECT_EQ(FindTransferSyntax(uid, 0), found ? kExplicitLittleEndian : 0) << uid;
        return found;
    };
    for (const char* const uid : {kXor, "1.2.4.9", "1.2.9.2"}) EXPECT_TRUE(isKnown(uid)) << uid;
    for (const char* const uid : {"", "1.2.3.x", "1.2.3.4", "1.2.4.100000", "1.2.9.1", "1.2.9.3"}) {
        EXPECT_FALSE(isKnown(uid)) << uid;
    }
    EXPECT_FALSE(isKnown(std::string(64, '1')));
    EXPECT_TRUE(CodecManager::CanEncode(kXor));  // the first of two stays
    CodecManager::Register("no module", nullptr);
    CodecManager::Register("Broken.dll", platform::OpenModule("Broken.dll"));
    EXPECT_EQ(CodecManager::FindProps("1.2.9.3"), nullptr);
    EXPECT_EQ(platform::OpenModule("Last.dll\n"), nullptr);
}

TEST(CodecManager, LoadsOnDemandAndReleasesAtZero) {
    CodecManager manager;
    const CodecEntry* const entry = CodecManager::FindEntry(kXor);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->module, nullptr);
    platform::ModuleHandle const kept = platform::OpenModule("DcmCodec.dll");
    const auto alive = reinterpret_cast<int (*)()>(platform::FindFunction(kept, "CodecsAlive"));
    DcmCodec* const codec = manager.GetCodec(kXor);
    {
        CodecManager other;
        EXPECT_EQ(other.GetCodec(kXor), codec);
        EXPECT_EQ(entry->useCount, 2);
        other.ReleaseCodec(nullptr);
    }
    EXPECT_EQ(entry->useCount, 1);
    EXPECT_EQ(alive(), 1);
    manager.ReleaseCodec(codec);
    manager.ReleaseCodec(codec);
    EXPECT_EQ(entry->module, nullptr);
    for (const char* const uid : {"1.2.3.6", "1.2.3.7", "1.2.9.2", "1.2.840.10008.1.2"}) {
        EXPECT_EQ(manager.GetCodec(uid), nullptr) << uid;
    }
    EXPECT_EQ(alive(), 0);
    platform::CloseModule(kept);
}

// A manager that works with a codec keeps it, also where its caller ends the last use that it knows of.
TEST(CodecManager, KeepsUsesOfItsOwnBesideTheCallers) {
    CodecManager manager;
    const CodecEntry* const entry = CodecManager::FindEntry(kXor);
    DcmCodec* const codec = manager.GetCodec(kXor);
    const auto set = Image(1, "1 ", std::string("abcde\0", 6));
    const std::string before = Listing(*set);
    ASSERT_EQ(manager.Convert(set.get(), kXor), 1) << manager.GetError();
    manager.ReleaseCodec(codec);
    manager.ReleaseCodec(codec);
    EXPECT_EQ(entry->useCount, 1);
    ASSERT_NE(entry->module, nullptr);
    ASSERT_EQ(manager.Decode(set.get()), 1) << manager.GetError();
    EXPECT_EQ(Listing(*set), before);
}

TEST(CodecManager, EncodesBehindAnOffsetTableAndDecodesTheSame) {
    CodecManager manager;
    const std::string log = testing::TempDir() + "korvane-codec-trace.log";
    std::filesystem::remove(log);
    SetDumpLogPath(log);
    SetDebugFlag(kDumpTransferSyntax, true);
    for (const char* const frames : {"1 ", "3 "}) {
        const int count = frames[0] - '0';
        const auto set = Image(3, frames, "");
        std::string pixels;
        for (int i = 0; i < count; ++i) pixels += std::string(15, static_cast<char>('a' + i));
        pixels += '\0';
        ReplaceValue(*set, tags::PixelData, TypeCode("OB"), pixels.data(), static_cast<std::uint32_t>(pixels.size()));
        const std::string before = Listing(*set);
        ASSERT_EQ(manager.Convert(set.get(), kXor), 1) << manager.GetError();
        const VR& encoded = *set->GetVR(0x7FE0, 0x0010);
        EXPECT_EQ(TextOf(*set, 0x0002, 0x0010), std::string(kXor) + '\0');
        EXPECT_EQ(encoded.GetItemCount(), static_cast<unsigned>(count) + 1);
        const VR* const table = GetFragment(encoded, 0);
        EXPECT_EQ(table != nullptr ? std::string(table->GetText()) : "", count > 1 ? Entries({0, 24, 48}) : "");
        const std::unique_ptr<DICOMObject> written(set->Clone(true));
        ASSERT_EQ(manager.DecodeForWriting(written.get()), 1) << manager.GetError();
        EXPECT_EQ(written->GetVR(0x7FE0, 0x0010)->m_Length, pixels.size());
        std::string joined;
        const auto take = [&joined](std::span<unsigned char> frame) {
            joined.append(frame.begin(), frame.end());
            return true;
        };
        EXPECT_EQ(manager.WriteFrames(take), count > 1);
        EXPECT_EQ(manager.WriteFrames(take), 0);  // once
        EXPECT_EQ(count > 1 ? joined + '\0' : TextOf(*written, 0x7FE0, 0x0010), pixels);
        ASSERT_EQ(manager.Decode(set.get()), 1) << manager.GetError();
        EXPECT_EQ(Listing(*set), before);
    }
    SetDebugFlag(kDumpTransferSyntax, false);
    const std::string table = "BASIC OFFSET TABLE\n0 -> 0 0\n";
    EXPECT_EQ(ReadText(log), table + table + "1 -> 24 18\n2 -> 48 30\n");

    const auto set = Image(1, "1 ", "abcde");
    EXPECT_EQ(manager.Convert(set.get(), "1.2.3.5"), 1);  // a codec that does not convert
    EXPECT_EQ(TextOf(*set, 0x0002, 0x0010).substr(0, 7), "1.2.3.5");
    for (const char* const target : {"1.2.9.9", "1.2.840.10008.1.2.1", "1.2.9.2"}) {
        EXPECT_EQ(manager.Convert(set.get(), target), CodecManager::FindProps(target) != nullptr) << target;
    }
}

TEST(CodecManager, TheExampleModulePacksTwelveBits) {
    CodecManager::Register("packed_codec.dll", platform::OpenModule("packed_codec.dll"));
    CodecManager manager;
    const char* const uid = "2.25.183403914637194011423021459364862417715";
    const auto set = Image(1, "1 ", "\xFF\x0F\x61\1b\2c\3d\4");
    for (const auto& [element, value] : {std::pair{0x0100, 16}, {0x0101, 12}, {0x0102, 11}}) {
        set->GetVR(0x0028, static_cast<std::uint16_t>(element))->m_pData[0] = static_cast<unsigned char>(value);
    }
    set->GetVR(0x7FE0, 0x0010)->m_TypeCode = TypeCode("OW");
    const std::string before = Listing(*set);
    ASSERT_EQ(manager.Convert(set.get(), uid), 1) << manager.GetError();
    EXPECT_EQ(GetFragment(*set->GetVR(0x7FE0, 0x0010), 1)->m_Length, 8U);
    ASSERT_EQ(manager.Decode(set.get()), 1) << manager.GetError();
    EXPECT_EQ(Listing(*set), before);
    set->GetVR(0x7FE0, 0x0010)->m_pData[1] = 0x10;
    EXPECT_EQ(manager.Convert(set.get(), uid), 0);
    EXPECT_EQ(manager.GetError(), "a pixel of more than 12 bits");
}

TEST(CodecManager, WhatWasDecodedIsDescribed) {
    CodecManager manager;
    const auto set = Image(1, "1 ", "");
    Encapsulate(*set, "", {"L\x3B\x38\x39\x3E\x3F"});
    set->Push(MakeText(0x7FE0, 0x0001, "OV", "offsets."));
    auto* const icons = new VR(0x0088, 0x0200, 0, 0);
    icons->m_TypeCode = TypeCode("SQ");
    auto icon = Image(1, "1 ", "");
    Encapsulate(*icon, "", {"N\x3B\x38\x39\x3E\x3F"});
    icons->AddItem(icon.release());
    set->Push(icons);
    ASSERT_EQ(manager.Decode(set.get()), 1) << manager.GetError();
    EXPECT_TRUE(manager.WasLossy());
    EXPECT_EQ(TextOf(*set, 0x7FE0, 0x0010), std::string("abcde\0", 6));
    EXPECT_EQ(TextOf(*icons->GetItem(0), 0x7FE0, 0x0010), std::string("abcde\0", 6));
    EXPECT_EQ(TextOf(*set, 0x0028, 0x0004), "RGB ");
    EXPECT_EQ(TextOf(*set, 0x0028, 0x2110) + TextOf(*set, 0x0028, 0x2112), "010.83");
    EXPECT_EQ(TextOf(*icons->GetItem(0), 0x0028, 0x2110), "none");
    EXPECT_EQ(TextOf(*set, 0x7FE0, 0x0001), "none");
    EXPECT_EQ(TextOf(*set, 0x0002, 0x0010), PaddedUid(kExplicitLittleEndianUid));
}

TEST(CodecManager, RefusesWithoutATrace) {
    CodecManager manager;
    const std::string frame = "N\x3B\x38\x39\x3E\x3F";
    const struct {
        std::uint16_t rows;
        const char* frames;
        std::vector<std::string> fragments;
        const char* reason;
    } cases[] = {{1, "1 ", {"r" + frame}, "impossible"},
                 {1, "1 ", {"p" + frame}, "impossible"},
                 {1, "1 ", {"b" + frame}, "impossible"},
                 {1, "1 ", {"e" + frame}, "eeee"},
                 {1, "1 ", {"t" + frame}, "exception"},
                 {1, "1 ", {"Nab"}, "no reason"},
                 {1, "2 ", {frame, "L" + frame.substr(1)}, "frame 2: pixels of another form"},
                 {1, "1 ", {}, "0 fragments"},
                 {1, "2147483647", {frame}, "more than one value"},
                 {1, "1000", {frame}, "1 fragment cannot hold 1000 frames"},
                 {0, "1 ", {frame}, "without rows"},
                 {60000, "20000 ", std::vector<std::string>(9, frame), "more than one value"}};
    for (const auto& one : cases) {
        const auto set = Image(one.rows, one.frames, "");
        Encapsulate(*set, "", one.fragments);
        const std::string before = Listing(*set);
        EXPECT_EQ(manager.Decode(set.get()), 0);
        EXPECT_NE(manager.GetError().find(one.reason), std::string::npos) << manager.GetError();
        EXPECT_EQ(Listing(*set), before);
    }
    // Loss in the second frame when the data set that says nothing of it has been written, by a codec that has none.
    const auto late = Image(1, "2 ", "");
    Encapsulate(*late, "", {frame, "M" + frame.substr(1)});
    EXPECT_EQ(manager.DecodeForWriting(late.get()), 1);
    EXPECT_EQ(manager.WriteFrames([](std::span<unsigned char>) { return true; }), 0);
    EXPECT_EQ(manager.GetError(), "frame 2: compressed with loss, by a codec that does not do so");
    for (const char* const pixels : {"abcd", "abcdefgh", "xbcde"}) {  // too short, too long, an encoder without end
        EXPECT_EQ(manager.Convert(Image(1, "1 ", pixels).get(), kXor), 0) << pixels;
    }
    EXPECT_EQ(manager.Convert(nullptr, kXor) + manager.Decode(nullptr), 0);
    manager.SetStopQuestion([] { return true; });
    EXPECT_EQ(manager.Convert(Image(1, "1 ", std::string("abcde\0", 6)).get(), kXor), 0);
    EXPECT_EQ(manager.GetError(), "stopped");
}

TEST(FragmentedFrames, FindsFramesByTablesThenByMarks) {
    const std::string jpeg = "\xFF\xD8\xFF\xE0";
    const std::string extended = Entries({7, 0, 17, 0});  // counted from wherever
    const struct {
        std::string basic, extended;
        std::uint32_t frames;
        std::vector<std::string> fragments;
        std::string found;  // the first letter of each frame's data, and its size
    } cases[] = {{"", "", 1, {"a1", "a2"}, "a4 "},
                 {Entries({0, 10}), "", 3, {"a1", "b1", "c1"}, "a2 b2 c2 "},
                 {Entries({0, 20}), "", 2, {"a1", "a2", "b1"}, "a4 b2 "},
                 {Entries({0, 10}), "", 2, {"a1", "b1", "b2"}, "a2 b4 "},
                 {"", extended, 2, {"a1", "b1", "b2"}, "a2 b4 "},
                 {Entries({0, 11}), extended, 2, {"a1", "b1", "b2"}, "a2 b4 "},
                 {Entries({0, 0xFFFFFFFF}), "", 2, {"a1", "b1", "b2"}, ""},
                 {Entries({0, 30}), "", 2, {"a1", "b1", "b2"}, ""},
                 {Entries({0, 0}), "", 2, {"a1", "b1", "b2"}, ""},
                 {Entries({0, 10, 10}), "", 3, {"a1", "b1", "b2", "c1"}, ""},
                 {"", "", 2, {jpeg, "a2", jpeg}, jpeg.substr(0, 1) + "6 " + jpeg.substr(0, 1) + "4 "},
                 {"", "", 2, {jpeg, jpeg, jpeg}, ""},
                 {"", "", 1, {jpeg, "a2", jpeg}, ""},
                 {"", "", 2, {"a1"}, ""}};
    for (const auto& one : cases) {
        DICOMDataObject set;
        Encapsulate(set, one.basic, one.fragments);
        if (!one.extended.empty()) set.Push(MakeText(0x7FE0, 0x0001, "OV", one.extended));
        FragmentedFrames frames;
        EXPECT_EQ(frames.Arrange(set, one.frames), !one.found.empty()) << one.found;
        std::string found;
        std::vector<unsigned char> joined;
        for (std::uint32_t i = 0; i < frames.GetCount(); ++i) {
            const auto data = frames.GetFrame(i, joined);
            found += static_cast<char>(data[0]) + std::to_string(data.size()) + " ";
        }
        EXPECT_EQ(found, one.found);
    }
}
