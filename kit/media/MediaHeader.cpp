#include "MediaHeader.h"

#include "../core/Error.h"
#include "../dataset/DataSetFile.h"

#include "platform/File.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace korvane {

namespace {

constexpr std::size_t kShortHeader = 16 * 1024;

MediaHeader LeftOut(const std::string& why) {
    MediaHeader header;
    header.why = why;
    return header;
}

MediaHeader CannotBeRead(int error, const Watch& watch) {
    watch.StopIfAsked();
    return LeftOut("cannot be read: " + SystemText(error));
}

// Why the data set cannot go onto a medium; empty when it can. `beyond`: bytes of the file behind those that were read.
std::string FindFault(const DataSetFile& file, std::uint64_t beyond, const MediaRules& rules) {
    const DICOMObject& dataSet = *file.dataSet;
    const bool hasMeta = !FindText(dataSet, tags::TransferSyntaxUID).empty();
    if (!file.complete) return "its data set ends early or is damaged";
    if (file.pixelsPresent + beyond < file.pixelLength) return "its pixel data ends early";
    if (!rules.rewrite) {
        if (hasMeta && !file.hasPreamble) return "it has no preamble";
        if (!hasMeta) return "it has no meta information (--transcode writes it)";
    }
    static constexpr std::pair<Tag, const char*> kNeeded[] = {{tags::PatientID, "Patient ID"},
                                                              {tags::StudyInstanceUID, "Study Instance UID"},
                                                              {tags::SeriesInstanceUID, "Series Instance UID"},
                                                              {tags::SOPInstanceUID, "SOP Instance UID"},
                                                              {tags::SOPClassUID, "SOP Class UID"}};
    for (const auto& [tag, name] : kNeeded) {
        const bool isInvented = tag == tags::PatientID && rules.inventPatientId;
        if (!isInvented && TextOf(dataSet, tag).empty()) return std::string("it has no ") + name;
    }
    return {};
}

}  // namespace

MediaHeader ReadMediaHeader(const std::string& path, const MediaRules& rules, const Watch& watch) {
    std::array<unsigned char, kShortHeader> head;
    platform::InputFile input;
    input.SetStopQuestion(watch.GetStopQuestion());
    errno = 0;
    const bool opened = input.Open(path.c_str());
    const std::uint64_t size =
        input.GetSize();  // asking for no more than that spares a read that only finds the end of the file
    const auto wanted = static_cast<std::size_t>(size > 0 ? std::min<std::uint64_t>(size, head.size()) : head.size());
    const std::size_t count = opened ? input.Read(head.data(), wanted) : 0;
    if (!opened || input.HasFailed()) return CannotBeRead(errno, watch);
    std::uint64_t beyond = size > count ? size - count : 0;
    input.Close();
    MemoryInputBuffer bytes(head.data(), count);
    DataSetFile file = ReadDataSet(bytes, kStopBeforePixelData);
    if (file.dataSet != nullptr && !file.hasPixels && count == head.size()) {
        FileInputBuffer buffer;
        buffer.SetStopQuestion(watch.GetStopQuestion());
        if (!buffer.Open(path.c_str())) return CannotBeRead(errno, watch);
        file = ReadDataSet(buffer, kStopBeforePixelData);
        if (buffer.HasFailed()) return CannotBeRead(buffer.GetError(), watch);
        beyond = 0;
    }
    MediaHeader header;
    header.notDicom = file.dataSet == nullptr;
    header.isDirectory =
        !header.notDicom && FindText(*file.dataSet, tags::MediaStorageSOPClassUID) == kMediaDirectoryClassUid;
    if (header.notDicom) {
        header.why = "not a DICOM file";
    } else if (header.isDirectory) {
        header.why = "a DICOMDIR";
    } else {
        header.why = FindFault(file, beyond, rules);
    }
    header.isPartTen =
        file.hasPreamble && file.dataSet != nullptr && !TextOf(*file.dataSet, tags::TransferSyntaxUID).empty();
    header.transferSyntax = std::move(file.transferSyntax);
    if (header.why.empty()) header.dataSet = std::move(file.dataSet);
    return header;
}

}  // namespace korvane
