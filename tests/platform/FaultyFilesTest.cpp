// What becomes of files when the disk is full, names are refused, or the system gives and takes less than it was asked.
#include <Korvane/Dicom.h>
#include <Korvane/Kit.h>
#include <Korvane/platform/ReplacingFile.h>
#include <Korvane/platform/faulty/Faults.h>

#include "../FolderTest.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>

using platform::Faults;
namespace fs = std::filesystem;

namespace {

using Setting = std::function<void(Faults&)>;
using Files = std::map<std::string, std::string>;

class FaultyFiles : public FolderTest {
protected:
    static std::string Text(const fs::path& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // All files below a folder and what is in them.
    Files Look(const std::string& folder) const {
        Files files;
        if (!fs::exists(Path(folder))) return files;
        for (const auto& entry : fs::recursive_directory_iterator(Path(folder))) {
            if (entry.is_regular_file()) files[entry.path().filename().string()] = Text(entry.path());
        }
        return files;
    }

    void Put(const std::string& name, const std::string& text) const {
        fs::create_directories(fs::path(Path(name)).parent_path());
        std::ofstream(Path(name), std::ios::binary) << text;
    }

    std::string MakeSeries() const {
        korvane::WritePhantom(Path("ct"), {.slices = 3, .columns = 32, .rows = 32});
        return Path("ct");
    }
};

// Each a way for the writing of a file to fail; the first writes nothing at all.
const std::map<std::string, Setting> kWriteFaults = {
    {"disk full at once", [](Faults& faults) { faults.failingWrite = 1; }},
    {"disk full later", [](Faults& faults) { faults.mostWritten = 1000, faults.failingWrite = 2; }},
    {"close", [](Faults& faults) { faults.failingClose = 1; }},
    {"rename", [](Faults& faults) { faults.failingRename = 1; }},
};

TEST_F(FaultyFiles, ReplacingFilesTellAndLeaveWhatWasThere) {
    auto faults = kWriteFaults;
    faults["sync"] = [](Faults& f) { f.failingSync = 1; };
    Put("out/a", "old");
    const std::string bytes(100'000, 'x');
    for (const auto& [name, set] : faults) {
        Faults fault;
        set(fault);
        platform::ReplacingFile file;
        file.SetDurable(true);
        EXPECT_FALSE(file.Open(Path("out/a")) && file.Write(bytes.data(), bytes.size()) && file.Commit()) << name;
        EXPECT_TRUE(errno == ENOSPC || errno == EIO || errno == EACCES) << name << ": " << errno;
        file.Discard();
        EXPECT_EQ(Look("out"), (Files{{"a", "old"}})) << name;
    }
    Faults less;
    less.mostRead = 7;
    less.mostWritten = 11;
    platform::ReplacingFile file;
    platform::InputFile input;
    Put("in", bytes);
    ASSERT_TRUE(input.Open(Path("in").c_str()) && file.Open(Path("out/a")) && file.WriteAll(input) && file.Commit());
    EXPECT_TRUE(Look("out") == (Files{{"a", bytes}}));
    EXPECT_GT(less.writes, 9'000);
}

TEST_F(FaultyFiles, ConversionsThatFailLeaveTheOldFile) {
    const std::string source = fs::directory_iterator(MakeSeries())->path().string();
    Put("out/a.dcm", "old");
    auto faults = kWriteFaults;
    faults["read"] = [](Faults& f) { f.failingRead = 1; };
    for (const auto& [name, set] : faults) {
        Faults fault;
        set(fault);
        try {
            korvane::Convert(source, Path("out/a.dcm"), {.syntax = "implicit"});
            ADD_FAILURE() << name << " was not told";
        } catch (const korvane::Error& error) {
            EXPECT_EQ(error.GetKind(), korvane::ErrorKind::Disk) << name;
            EXPECT_FALSE(error.GetFile().empty()) << name;
        }
        EXPECT_EQ(Look("out"), (Files{{"a.dcm", "old"}})) << name;
    }
    korvane::Convert(source, Path("out/whole.dcm"), {.syntax = "implicit"});
    Faults less;
    less.mostRead = 13;
    less.mostWritten = 17;
    korvane::Convert(source, Path("out/a.dcm"), {.syntax = "implicit"});
    EXPECT_TRUE(Look("out")["a.dcm"] == Look("out")["whole.dcm"]);
}

TEST_F(FaultyFiles, ExportsThatFailLeaveEachOldFile) {
    const korvane::Volume volume = korvane::Load(korvane::Find({MakeSeries()}).Only());
    const Files old = {{"v.hdr", "old header"}, {"v.img", "old image"}};
    for (const auto& [name, text] : old) Put("out/" + name, text);
    for (const int which : {1, 2}) {
        Faults fault;
        fault.failingRename = which;
        EXPECT_THROW(korvane::Export(volume, "analyze", "file:" + Path("out/v")), korvane::Error);
        EXPECT_EQ(Look("out"), old) << "rename " << which;
    }
    EXPECT_NO_THROW(korvane::Export(volume, "analyze", "file:" + Path("out/v")));
    EXPECT_EQ(Look("out").size(), 2U);
    EXPECT_EQ(Look("out")["v.hdr"].size(), 348U);
}

TEST_F(FaultyFiles, AMediumIsThereWholeOrNotAtAll) {
    const std::string series = MakeSeries();
    for (const auto& [name, only, set] :
         {std::tuple<std::string, std::string, Setting>{"rename", "DICOMDIR", [](Faults& f) { f.failingRename = 1; }},
          {"read", "ct", [](Faults& f) { f.failingRead = 1; }}}) {
        Faults fault;
        fault.only = only;
        set(fault);
        bool told = false;
        try {
            told = !korvane::BuildMedium(Path("medium"), {series}).faults.empty();
        } catch (const korvane::Error&) {
            told = true;
        }
        EXPECT_TRUE(told) << name;
        EXPECT_TRUE(Look("medium").empty()) << name;
    }
    Faults less;
    less.mostRead = 100;
    EXPECT_EQ(korvane::BuildMedium(Path("medium"), {series}).medium.files, 3U);
}

TEST_F(FaultyFiles, ReceivedFilesAreWholeOrRefused) {
    StorageRequest request;
    request.sopClass = "1.2.840.10008.5.1.4.1.1.2";
    request.sopInstance = "1.2.3";
    request.transferSyntax = "1.2.840.10008.1.2.1";
    const std::string bytes(100'000, 'x');
    Put("in/1.2.3.dcm", "old");
    for (const auto& [name, set] : kWriteFaults) {
        Faults fault;
        set(fault);
        FolderSink sink(Path("in"));
        std::uint16_t status = sink.Begin(request);
        if (status == kStatusSuccess) status = sink.Write(bytes.data(), bytes.size());
        if (status == kStatusSuccess) status = sink.End();
        EXPECT_EQ(status, kStatusOutOfResources) << name;
        sink.Discard();
        EXPECT_EQ(Look("in"), (Files{{"1.2.3.dcm", "old"}})) << name;
    }
}

}  // namespace
