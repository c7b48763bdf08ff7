#include "MediaHeader.h"

#include "HostError.h"

#include <Korvane/platform/Bytes.h>
#include <Korvane/platform/File.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace {

constexpr std::size_t kShortHeader = 16 * 1024;
constexpr std::size_t kMarkerAt = 128;
constexpr std::string_view kDirectoryClassUid = "1.2.840.10008.1.3.10";

bool BeginsLikeDicom(const unsigned char* bytes, std::size_t count) {
    if (count >= kMarkerAt + 4 && std::memcmp(bytes + kMarkerAt, "DICM", 4) == 0) return true;
    if (count < 8) return false;
    const auto group = platform::LoadLittle<std::uint16_t>(bytes);
    return group == 0x0002 || group == 0x0008;
}

MediaHeader LeftOut(const std::string& why) {
    MediaHeader header;
    header.why = why;
    return header;
}

/// Empty when the data set can go onto a medium.
std::string FindFault(const DICOMObject& dataSet, const DICOMFileReader& reader, bool transcode) {
    if (reader.IsDeflated()) return "its data set is deflated";
    if (!reader.IsComplete()) return "its data set ends early or is damaged";
    const bool hasMeta = !reader.GetTransferSyntax().empty();
    if (hasMeta && !reader.HasPreamble()) return "it has no preamble";
    if (!hasMeta && !transcode) {
        return "it has no meta information (--transcode writes it)";
    }
    static constexpr std::pair<Tag, const char*> kNeeded[] = {{MakeTag(0x0010, 0x0020), "Patient ID"},
                                                              {MakeTag(0x0020, 0x000D), "Study Instance UID"},
                                                              {MakeTag(0x0020, 0x000E), "Series Instance UID"},
                                                              {MakeTag(0x0008, 0x0018), "SOP Instance UID"},
                                                              {MakeTag(0x0008, 0x0016), "SOP Class UID"}};
    for (const auto& [tag, name] : kNeeded) {
        if (FindText(dataSet, tag).empty()) return std::string("it has no ") + name;
    }
    return {};
}

}  // namespace

MediaHeader ReadMediaHeader(const std::string& path, bool transcode) {
    static std::array<unsigned char, kShortHeader> head;
    platform::InputFile file;
    errno = 0;
    const bool opened = file.Open(path.c_str());
    const std::size_t count = opened ? file.Read(head.data(), head.size()) : 0;
    if (!opened || file.HasFailed()) {
        const int error = errno;
        StopIfInterrupted();
        return LeftOut("cannot be read: " + SystemText(error));
    }
    const bool isWhole = count < head.size();
    file.Close();
    MediaHeader header;
    if (!BeginsLikeDicom(head.data(), count)) {
        header = LeftOut("not a DICOM file");
        header.notDicom = true;
        return header;
    }
    DictionaryCodec codec;
    DICOMFileReader reader(codec);
    header.dataSet = reader.LoadMemory(head.data(), count, kStopBeforePixelData);
    if (!isWhole && !reader.HasStopped()) header.dataSet = reader.Load(path.c_str(), kStopBeforePixelData);
    if (header.dataSet == nullptr) return LeftOut("cannot be read: " + SystemText(errno));
    if (FindText(*header.dataSet, MakeTag(0x0002, 0x0002)) == kDirectoryClassUid) {
        header = LeftOut("a DICOMDIR");
        header.isDirectory = true;
        return header;
    }
    const std::string fault = FindFault(*header.dataSet, reader, transcode);
    return fault.empty() ? std::move(header) : LeftOut(fault);
}
