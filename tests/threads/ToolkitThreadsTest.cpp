// The toolkit in several threads: readers, codec managers, PDUs, sockets and the trace.
#include "AtOnce.h"
#include "Dicom/Lib/NetworkPeers.h"

#include <gtest/gtest.h>
#include <sstream>

namespace {

constexpr char kJpeg2000[] = "1.2.840.10008.1.2.4.90";
constexpr char kLosslessJpeg[] = "1.2.840.10008.1.2.4.70";
constexpr char kRle[] = "1.2.840.10008.1.2.5";

// 16 x 16 grey pixels, and a sequence; other numbers give other ones.
std::unique_ptr<DICOMDataObject> Image(int number) {
    auto set = std::make_unique<DICOMDataObject>();
    set->Push(MakeText(0x0002, 0x0010, "UI", std::string("1.2.840.10008.1.2.1\0", 20)));
    set->Push(MakeText(0x0010, 0x0010, "PN", "Doe^" + std::string(2, static_cast<char>('A' + number))));
    set->Push(MakeText(0x0028, 0x0004, "CS", "MONOCHROME2 "));
    const std::uint16_t numbers[][2] = {{2, 1}, {0x10, 16}, {0x11, 16}, {0x100, 8}, {0x101, 8}, {0x102, 7}, {0x103, 0}};
    for (const auto& [element, value] : numbers) set->Push(MakeU16(0x0028, element, value));
    std::string pixels;
    for (int i = 0; i < 256; ++i) pixels += static_cast<char>(i / 5 * (number + 1));
    set->Push(MakeText(0x7FE0, 0x0010, "OB", pixels));
    return set;
}

// Claims to be compressed, and is not.
std::unique_ptr<DICOMDataObject> Jpeg2000(int number) {
    auto set = Image(number);
    ReplaceText(*set, tags::TransferSyntaxUID, TypeCode("UI"), kJpeg2000);
    set->Take(0x7FE0, 0x0010);
    auto* const pixels = new VR(0x7FE0, 0x0010, 0, 0);
    AppendFragment(*pixels, nullptr, 0);
    AppendFragment(*pixels, "\xFF\x4F\xFF\x51 no more", 12);
    set->Push(pixels);
    return set;
}

// The data set as a file, read again: what came of it.
std::unique_ptr<DICOMDataObject> SavedAndLoaded(const DICOMObject& set) {
    TransferSyntaxCodec codec(&PublicDictionary());
    MemoryOutputBuffer out;
    const std::unique_ptr<DICOMObject> copy(set.Clone(true));
    codec.EncodeStream(kExplicitLittleEndian, out, copy.get());
    const std::string syntax(set.GetVR(0x0002, 0x0010)->GetText());
    const Bytes file =
        Join({Text(std::string(128, '\0') + "DICM"), le.Short(0x0002, 0x0010, "UI", syntax), out.GetBytes()});
    DICOMFileReader reader(codec);
    return reader.LoadMemory(file.data(), file.size());
}

// What saving, loading, decoding and encoding make of a number's images; "" when every pixel came back.
std::string Transcoded(int number) {
    std::string faults;
    const auto image = Image(number);
    const std::string before = Listing(*image);
    CodecManager manager;
    for (int round = 0; round < 5; ++round) {
        for (const char* const uid : {kRle, kLosslessJpeg}) {
            const std::unique_ptr<DICOMObject> set(image->Clone(true));
            if (!CodecManager::CanEncode(uid)) faults += std::string("no codec for ") + uid;
            if (manager.Convert(set.get(), uid) == 0) faults += manager.GetError();
            const auto loaded = SavedAndLoaded(*set);
            if (Listing(*loaded) != Listing(*set)) faults += std::string("not what was saved: ") + uid;
            if (manager.Decode(loaded.get()) == 0) faults += manager.GetError();
            if (Listing(*loaded) != before) faults += std::string("not what was encoded: ") + uid;
        }
        const auto damaged = SavedAndLoaded(*Jpeg2000(number));
        if (damaged == nullptr || manager.Decode(damaged.get()) != 0) faults += "decoded from nothing";
        if (manager.GetError().empty()) faults += "no reason";
        if (FindTransferSyntax(kJpeg2000, 0) != kExplicitLittleEndian) faults += "unknown syntax";
    }
    return faults;
}

// A request through its bytes and back, and a pair of sockets; "" when all is as it was.
std::string Talked(int number) {
    std::string faults;
    for (int round = 0; round < 20; ++round) {
        AAssociateRQ request = Request(), again;
        request.m_CallingAETitle = "TESTER" + std::to_string(number);
        const Bytes bytes = PduBytes(request);
        if (ReadFrom(again, bytes) == 0 || PduBytes(again) != bytes) faults += "another request";
        DimseCommand command;
        const Bytes store = StoreCommand("1.2." + std::to_string(number)).Encode();
        if (command.Decode(store.data(), store.size()) == 0 || command.Encode() != store) faults += "another command";
        DcmSocket server, client;
        if (!ConnectPair(server, client)) {
            faults += "no connection";
            continue;
        }
        SendBytes(client, bytes);
        client.Close();
        if (ReceiveAll(server) != bytes) faults += "other bytes";
    }
    return faults;
}

}  // namespace

TEST(ToolkitThreads, CodecsAndReadersSideBySide) {
    EXPECT_EQ(AtOnce(Transcoded), std::vector<std::string>(kThreads));
}

TEST(ToolkitThreads, PdusAndSocketsSideBySide) {
    EXPECT_EQ(AtOnce(Talked), std::vector<std::string>(kThreads));
}

TEST(ToolkitThreads, NewSyntaxesWhileOthersLookUp) {
    const auto results = AtOnce([](int number) {
        std::string faults;
        for (int i = 0; i < 50; ++i) {
            const std::string own = "1.2.3." + std::to_string(number) + "." + std::to_string(i);
            if (RegisterTransferSyntax(own, kImplicitLittleEndian) == 0) faults += "not new: " + own;
            if (FindTransferSyntax(own, 0) != kImplicitLittleEndian) faults += "not found: " + own;
            if (FindTransferSyntax(kRle, 0) != kExplicitLittleEndian) faults += "lost: RLE";
        }
        return faults;
    });
    EXPECT_EQ(results, std::vector<std::string>(kThreads));
}

TEST(ToolkitThreads, LinesOfTheTraceStayWhole) {
    constexpr std::uint32_t kOwnBits = 0x100;  // one more for each thread
    const std::string bytes(40, 'x');
    const std::string log = Traced(kDumpPData, [&] {
        AtOnce([&](int number) {
            for (int i = 0; i < 50; ++i) {
                SetDebugFlag(kOwnBits << number, i % 2 == 0);
                if (DumpLogName().empty()) return std::string("no log");
                Trace(kOwnBits << number, "thread %d\nline %d\n", number, i);
                HexDump(bytes.data(), static_cast<int>(bytes.size()), kDumpPData);
            }
            return std::string();
        });
    });
    std::istringstream lines(log);
    int dumps = 0, texts = 0;
    for (std::string line, next; std::getline(lines, line);) {
        ASSERT_TRUE(std::getline(lines, next));
        if (line.starts_with("000000-000031 ")) {
            ++dumps;
            EXPECT_TRUE(next.starts_with("000032-000039 ") && next.ends_with("| xxxxxxxx|")) << next;
        } else {
            ++texts;
            EXPECT_TRUE(line.starts_with("thread ") && next.starts_with("line ")) << line << next;
        }
    }
    EXPECT_EQ(dumps, 50 * kThreads);
    EXPECT_EQ(texts, 25 * kThreads) << "a flag that one thread changes is lost when others change theirs";
}
