#include "DataSetOutput.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "Convert.h"

#include "base/Bytes.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr std::uint16_t kNegativeKeys = 0x8000;  // groups from here on come first in the library's order
constexpr std::string_view kMediaDirectoryClass = "1.2.840.10008.1.3.10";

// Writes elements in ascending order of their unsigned tags (PS3.5 7.1), on every level, and the frames that codecs
// have left.
class StandardOrderCodec : public DictionaryCodec {
public:
    explicit StandardOrderCodec(CodecManager& codecs) : m_Codecs(codecs) {}

    int ImplicitEncode(Buffer& buffer, DICOMObject* dataSet, int depth) override {
        DICOMDataObject last;
        TakeHighGroups(*dataSet, last);
        return DictionaryCodec::ImplicitEncode(buffer, dataSet, depth) &
               DictionaryCodec::ImplicitEncode(buffer, &last, depth);
    }

    int ExplicitEncode(Buffer& buffer, DICOMObject* dataSet, int depth) override {
        DICOMDataObject last;
        TakeHighGroups(*dataSet, last);
        return DictionaryCodec::ExplicitEncode(buffer, dataSet, depth) &
               DictionaryCodec::ExplicitEncode(buffer, &last, depth);
    }

    int OnWritePixelData(Buffer& buffer, VR& pixelData, std::uint32_t length) override {
        if (!m_Codecs.HasFramesToWrite()) return DictionaryCodec::OnWritePixelData(buffer, pixelData, length);
        const bool isLittle = buffer.GetByteOrder() == Buffer::kLittleEndian;
        const unsigned unit = isLittle ? 1 : GetSwapUnit(pixelData.m_TypeCode);
        std::size_t left = length;
        const int written = m_Codecs.WriteFrames([&](std::span<unsigned char> frame) {
            platform::SwapUnits(frame.data(), frame.size(), unit);
            left -= frame.size();
            return buffer.Write(frame.data(), frame.size());
        });
        return written != 0 && buffer.WriteZeros(left) ? 1 : 0;
    }

private:
    static void TakeHighGroups(DICOMObject& dataSet, DICOMObject& into) {
        while (dataSet.GetFirst() != nullptr && dataSet.GetFirst()->m_Group >= kNegativeKeys) {
            into.Push(dataSet.Take(dataSet.GetFirst()->m_Group, dataSet.GetFirst()->m_Element).release());
        }
    }

    CodecManager& m_Codecs;
};

bool WriteParts(Buffer& buffer, DICOMDataObject& dataSet, std::string_view syntax, CodecManager& codecs) {
    static constexpr char kMarker[] = {'D', 'I', 'C', 'M'};
    StandardOrderCodec codec(codecs);
    if (codec.PrepareMetaInformation(&dataSet, 3) == 0) return false;
    if (IsNativeTransferSyntax(syntax)) PutText(dataSet, tags::TransferSyntaxUID, syntax);
    return buffer.WriteZeros(128) && buffer.Write(kMarker, sizeof kMarker) &&
           codec.EncodeMetaInformation(buffer, dataSet) != 0 &&
           codec.EncodeStream(FindTransferSyntax(syntax, kExplicitLittleEndian), buffer, &dataSet) != 0;
}

}  // namespace

std::vector<std::string> GetSyntaxWords() {
    std::vector<std::string> words;
    for (const TransferSyntaxRow& row : kTransferSyntaxes) {
        if (!row.word.empty()) words.emplace_back(row.word);
    }
    std::sort(words.begin(), words.end());
    return words;
}

std::string SyntaxUid(const std::string& syntax) {
    const TransferSyntaxRow* const row = FindSyntaxWord(syntax);
    return row != nullptr ? std::string(row->uid) : syntax;
}

UnfinishedFile::UnfinishedFile(const std::string& name) : m_Name(name) {
    std::error_code error;
    const fs::path path = PathFromText(name);
    m_bDevice = fs::is_other(path, error);
    if (m_bDevice) return;
    if (fs::is_symlink(path, error)) {
        const fs::path file = fs::canonical(path, error);
        if (!error) m_Name = TextFromPath(file);
    }
    if (!m_File.Reserve(m_Name)) {
        throw Error(ErrorKind::Disk, "cannot write " + name + ": " + SystemText(errno)).InFile(name);
    }
}

void UnfinishedFile::Finish() {
    if (m_bDevice || m_File.Commit()) return;
    const std::error_code error(errno, std::generic_category());
    throw Error(ErrorKind::Disk, "cannot create " + m_Name + ": " + SystemText(error, m_Name)).InFile(m_Name);
}

bool IsMediaDirectory(const DICOMObject& dataSet) {
    return FindText(dataSet, tags::MediaStorageSOPClassUID) == kMediaDirectoryClass ||
           FindElement(dataSet, tags::DirectoryRecordSequence) != nullptr;
}

bool WriteDataSet(Buffer& buffer, DICOMDataObject& dataSet, std::string_view syntax, CodecManager& codecs) {
    return WriteParts(buffer, dataSet, syntax, codecs) && buffer.Flush();
}

}  // namespace korvane
