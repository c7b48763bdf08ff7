#include "FolderTest.h"
#include "NetworkPeers.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using Event = DcmService::Event;
using namespace std::string_literals;

const Bytes kPreamble = Join({Bytes(128), Text("DICM")});

Bytes Meta(const std::string& syntax) {
    return le.Short(0x0002, 0x0010, "UI", syntax + std::string(syntax.size() % 2, '\0'));
}

// Class, instance and `rest` in a byte order; the other elements are the same in any.
Bytes File(const std::string& syntax, const std::string& instance, const Bytes& rest, const Writer& order = le) {
    return Join({kPreamble, Meta(syntax), order.Short(0x0008, 0x0016, "UI", std::string(kCtClass) + '\0'),
                 order.Short(0x0008, 0x0018, "UI", instance), rest});
}

class Storage : public FolderTest {
protected:
    Storage() { fs::create_directories(m_Folder / "in"); }

    // Sends the files written to this folder; what came of each.
    std::vector<StorageResult> Send(const std::vector<std::string>& names, const AcceptPolicy& policy,
                                    std::uint32_t maximumLength = DcmService::kDefaultLength) {
        FolderSink sink(Path("in"));
        Server server([&](DcmService& service) {
            service.SetMaximumLength(maximumLength);
            m_Event = StorageProvider(service, sink).Serve(policy);
        });
        std::vector<StorageFile> files(names.size());
        for (std::size_t i = 0; i < names.size(); ++i) {
            std::string error;
            EXPECT_EQ(files[i].Examine(Path(names[i]), error), 1) << names[i] << ": " << error;
        }
        DcmService service;
        TransferSyntaxCodec codec(&PublicDictionary());
        StorageUser user(service, codec);
        EXPECT_EQ(user.Propose(files), files.size());
        EXPECT_EQ(service.Associate("127.0.0.1", server.GetPort().c_str()), Event::Accepted) << service.GetError();
        std::vector<StorageResult> results;
        for (const StorageFile& file : files) results.push_back(user.Send(file));
        EXPECT_EQ(service.Release(), Event::Released) << service.GetError();
        server.Join();
        EXPECT_EQ(m_Event, Event::Released);
        return results;
    }

    // The values of a file's data set. Without their types, which the implicit syntax does not carry.
    static std::string Content(const std::string& path) {
        TransferSyntaxCodec codec(&PublicDictionary());
        DICOMFileReader reader(codec);
        const auto set = reader.Load(path.c_str());
        if (set == nullptr || !reader.IsComplete()) return "not read: " + path;
        while (set->GetFirst() != nullptr && set->GetFirst()->m_Group == 2) delete set->Pop();
        for (VR* vr = set->GetFirst(); vr != nullptr; vr = set->GetNext(vr)) vr->m_TypeCode = 0;
        return Listing(*set);
    }

    // What the provider answers to one data set, and what then lies in the folder.
    std::pair<std::uint16_t, std::size_t> Status(const DimseCommand& command, const Bytes& data, const char* folder) {
        DcmService service;
        DcmSocket peer;
        EXPECT_TRUE(ConnectPair(service.GetSocket(), peer));
        SendBytes(peer, Join({PduBytes(Request()), DataPdu(3, 3, command.Encode()),
                              command.HasDataSet() ? DataPdu(3, 2, data) : Bytes(), DataPdu(1, 3, EchoCommand()),
                              PduBytes(AReleaseRQ())}));
        peer.ShutDown();
        FolderSink sink(Path(folder));
        EXPECT_EQ(StorageProvider(service, sink).Serve({}), Event::Released) << "what follows is served";
        const Bytes answers = ReceiveAll(peer);
        AAssociateAC answer;
        EXPECT_EQ(ReadFrom(answer, answers), 1);
        const Bytes message(answers.begin() + 6 + answer.m_Length + PDataTF::kHeadBytes, answers.end());
        const std::size_t length = 12 + platform::LoadLittle<std::uint32_t>(&message[8]);
        DimseCommand response;
        EXPECT_EQ(response.Decode(message.data(), length), 1);
        EXPECT_EQ(response.field, command.field | kResponseBit);
        const auto count =
            std::distance(fs::recursive_directory_iterator(m_Folder), fs::recursive_directory_iterator());
        return {response.status, static_cast<std::size_t>(count) - 1};
    }

    Event m_Event = Event::Fault;
};

}  // namespace

static int Count(std::string_view text, std::string_view word) {
    int count = 0;
    for (std::size_t at = 0; (at = text.find(word, at)) != std::string_view::npos; at += word.size()) ++count;
    return count;
}

TEST_F(Storage, EveryEncodingArrivesAsItWas) {
    const std::string uid(kImplicitLittleEndianUid);
    const Bytes pixels = Text("abcdefgh");
    const Bytes maker = Join({le.Short(0x0009, 0x0010, "LO", "MAKER "), le.Short(0x0009, 0x1001, "LO", "ab")});
    WriteBytes(Path("explicit"), File(uid + ".1", "1.10", Join({maker, le.Long(0x7FE0, 0x0010, "OW", 8), pixels})));
    WriteBytes(Path("big"),
               File(uid + ".2", "1.20",
                    Join({be.Short(0x0028, 0x0010, "US", "ab"), be.Long(0x7FE0, 0x0010, "OW", 8), pixels}), be));
    WriteBytes(Path("implicit"), Join({kPreamble, Meta(uid), le.Implicit(0x0008, 0x0016, std::string(kCtClass) + '\0'),
                                       le.Implicit(0x0008, 0x0018, "1.30"), le.Implicit(0x0099, 0x1001, "ab"),
                                       le.Implicit(0x7FE0, 0x0010, std::string(300000, 'x'))}));
    WriteBytes(Path("odd"), File(uid + ".1", "1.40", le.Short(0x0010, 0x0010, "PN", "Doe")));
    WriteBytes(Path("rle"), File(uid + ".5", "1.50",
                                 Join({le.Long(0x7FE0, 0x0010, "OB", 0xFFFFFFFF), le.Item(0), le.Item(8), pixels,
                                       le.SequenceEnds()})));
    const std::vector<std::string> names = {"explicit", "big", "implicit", "odd", "rle"};
    for (const std::string& only : {std::string(), uid, uid + ".1", uid + ".2"}) {
        AcceptPolicy policy;
        if (!only.empty()) policy.acceptsSyntax = [only](std::string_view syntax) { return syntax == only; };
        for (const std::uint32_t length : {0U, 16U, 1024U, DcmService::kDefaultLength}) {
            fs::remove_all(Path("in"));
            fs::create_directories(Path("in"));
            const auto results = Send(names, policy, length);
            for (std::size_t i = 0; i < names.size(); ++i) {
                const std::string instance = "1." + std::to_string(i + 1) + "0.dcm";
                // Others go the way of "big" where only that is open; nothing is decompressed here.
                const bool stored = only.empty() || names[i] != "rle";
                EXPECT_EQ(results[i].stored, stored) << only << names[i] << length << results[i].error;
                EXPECT_EQ(fs::exists(Path("in/" + instance)), stored);
                if (!stored) continue;
                EXPECT_EQ(Content(Path("in/" + instance)), Content(Path(names[i]))) << only << names[i];
            }
            if (!only.empty()) break;
        }
    }
}

TEST_F(Storage, SentDataIsTraced) {
    WriteBytes(Path("a"), File(std::string(kExplicitLittleEndianUid), "1.10", le.Short(0x0010, 0x0010, "PN", "Doe ")));
    const std::string traced = Traced(kDumpPData, [&] { Send({"a"}, AcceptPolicy()); });
    // Two commands and a data set, each seen from both ends.
    EXPECT_EQ(Count(traced, "Writing PDataTF"), 3);
    EXPECT_EQ(Count(traced, "Reading PDataTF"), 3);
}

TEST_F(Storage, AnswersTellWhatIsWrongAndNothingHalfIsLeft) {
    const Bytes good = SmallSet();
    const Bytes cut(good.begin(), good.end() - 1);
    DimseCommand otherClass = StoreCommand();
    otherClass.sopClass = "1.2.840.10008.5.1.4.1.1.4";
    DimseCommand noData = StoreCommand();
    noData.dataSetType = DimseCommand::kNoDataSet;
    DimseCommand find = StoreCommand();
    find.field = 0x0020;
    const struct {
        const char* what;
        DimseCommand command;
        Bytes data;
        std::uint16_t status;
        const char* folder = "in";
    } cases[] = {
        {"class of another context", otherClass, good, kStatusClassNotSupported},
        {"no data set", noData, {}, kStatusCannotUnderstand},
        {"other instance inside", StoreCommand(), SmallSet("1.2.4"), kStatusDataSetMismatch},
        {"other class inside", StoreCommand(), SmallSet("1.2.3", otherClass.sopClass), kStatusDataSetMismatch},
        {"no identity inside", StoreCommand(), le.Short(0x0010, 0x0010, "PN", "Doe^Jane"), kStatusDataSetMismatch},
        {"cut off", StoreCommand(), cut, kStatusCannotUnderstand},
        {"sequence without end", StoreCommand(), Join({good, le.Long(0x0040, 0xA730, "SQ", 0xFFFFFFFF)}),
         kStatusCannotUnderstand},
        {"end without sequence", StoreCommand(), Join({good, le.ItemEnds()}), kStatusCannotUnderstand},
        {"empty", StoreCommand(), {}, kStatusCannotUnderstand},
        {"no folder", StoreCommand(), good, kStatusOutOfResources, "nowhere"},
        {"query", find, good, kStatusUnrecognizedOperation},
        {"good", StoreCommand(), good, kStatusSuccess},
        {"again", StoreCommand(), good, kStatusSuccess},
    };
    for (const std::string& noUid : {"../../1"s, "1\\2"s, "1..2"s, ""s, std::string(65, '1')}) {
        EXPECT_EQ(Status(StoreCommand(noUid), SmallSet(noUid), "in").first, kStatusInvalidInstance) << noUid;
    }
    for (const auto& c : cases) {
        const auto [status, files] = Status(c.command, c.data, c.folder);
        EXPECT_EQ(status, c.status) << c.what;
        EXPECT_EQ(files, c.status == kStatusSuccess ? 1U : 0U) << c.what;
    }
    EXPECT_NE(Content(Path("in/1.2.3.dcm")).find("Doe^Jane"), std::string::npos);
}

TEST_F(Storage, DamagedFilesAreNotSent) {
    const std::string uid(kExplicitLittleEndianUid);
    const Bytes whole = File(uid, "1.10",
                             Join({le.Long(0x0040, 0xA730, "SQ", 0xFFFFFFFF), le.Item(0xFFFFFFFF),
                                   le.Short(0x0010, 0x0010, "PN", "Doe^Jane"), le.ItemEnds(), le.Item(4), Bytes(4),
                                   le.SequenceEnds(), le.Long(0x7FE0, 0x0010, "OW", 9000), Bytes(9000)}));
    StorageFile file;
    std::string error;
    WriteBytes(Path("whole"), whole);
    EXPECT_EQ(file.Examine(Path("whole"), error), 1) << error;
    EXPECT_EQ(file.sopInstance, "1.10");
    const auto after = static_cast<std::size_t>(file.dataOffset);
    for (std::size_t count = 0; count < whole.size(); count += count < after + 200 ? 2 : 997) {
        WriteBytes(Path("cut"), Bytes(whole.begin(), whole.begin() + static_cast<long>(count)));
        const bool atElementsEnd = count == after + 46 || count == after + 110;  // a data set, if a short one
        EXPECT_EQ(file.Examine(Path("cut"), error), atElementsEnd ? 1 : 0) << count;
    }
    EXPECT_EQ(file.Examine(Path("none"), error), 0);
}

TEST_F(Storage, ManyClassesNeedSeveralAssociations) {
    std::vector<StorageFile> files(100);
    for (std::size_t i = 0; i < files.size(); ++i) {
        files[i].sopClass = "1.2." + std::to_string(i / 2);
        files[i].transferSyntax = i % 2 == 0 ? kRleUid : kExplicitLittleEndianUid;
    }
    DcmService service;
    TransferSyntaxCodec codec;
    StorageUser user(service, codec);
    const std::size_t next = user.Propose(files);
    EXPECT_EQ(service.AAssociateRQ::m_Contexts.size(), 127U) << "three for each class";
    EXPECT_EQ(next, 85U);
    EXPECT_EQ(user.Propose(files, next), files.size());
}
