#include "DataSetOutput.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "Convert.h"
#include "LeftValues.h"

#include "Dicom/Lib/stream/FileBuffer.h"
#include "base/Bytes.h"
#include "platform/ReplacingFile.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr std::uint16_t kNegativeKeys = 0x8000;  // groups from here on come first in the library's order

// Writes elements in ascending order of their unsigned tags (PS3.5 7.1), on every level, the frames that codecs have left,
// and values that lie in a file.
class StandardOrderCodec : public DictionaryCodec {
public:
    StandardOrderCodec(CodecManager& codecs, LeftValueReader& left) : m_Codecs(codecs), m_Left(left) {}

    int ImplicitEncode(Buffer& buffer, DICOMObject* dataSet, int depth) override {
        return EncodeInOrder(*dataSet, depth,
                             [&](DICOMObject& part) { return DictionaryCodec::ImplicitEncode(buffer, &part, depth); });
    }

    int ExplicitEncode(Buffer& buffer, DICOMObject* dataSet, int depth) override {
        return EncodeInOrder(*dataSet, depth,
                             [&](DICOMObject& part) { return DictionaryCodec::ExplicitEncode(buffer, &part, depth); });
    }

    int OnWritePixelData(Buffer& buffer, VR& pixelData, std::uint32_t length) override {
        if (IsLeft(pixelData)) return WriteLeft(buffer, pixelData) && buffer.WriteZeros(length - pixelData.m_Length);
        if (!m_Codecs.HasFramesToWrite()) return DictionaryCodec::OnWritePixelData(buffer, pixelData, length);
        std::size_t left = length;
        const int written = m_Codecs.WriteFrames([&](std::span<unsigned char> frame) {
            platform::SwapUnits(frame.data(), frame.size(), UnitFor(buffer, pixelData));
            left -= frame.size();
            return buffer.Write(frame.data(), frame.size());
        });
        return written != 0 && buffer.WriteZeros(left) ? 1 : 0;
    }

    int EncodeEncapsulated(Buffer& buffer, VR& pixelData) override {
        if (!HasLeftFragments(pixelData)) return DictionaryCodec::EncodeEncapsulated(buffer, pixelData);
        for (std::uint32_t i = 0; i < pixelData.GetItemCount(); ++i) {
            const VR* const fragment = GetFragment(pixelData, i);
            const std::uint32_t length = fragment != nullptr ? fragment->m_Length : 0;
            const std::uint32_t pad = length & 1U;
            if (!WriteDelimiter(buffer, ElementHeader::kItem, length + pad)) return 0;
            if (fragment == nullptr) continue;
            const bool written =
                IsLeft(*fragment) ? WriteLeft(buffer, *fragment) : buffer.Write(fragment->m_pData, fragment->m_Length);
            if (!written || !buffer.WriteZeros(pad)) return 0;
        }
        return WriteDelimiter(buffer, ElementHeader::kSequenceEnds, 0) ? 1 : 0;
    }

private:
    template <class Encode>
    int EncodeInOrder(DICOMObject& dataSet, int depth, const Encode& encode) {
        DICOMDataObject last;
        while (dataSet.GetFirst() != nullptr && dataSet.GetFirst()->m_Group >= kNegativeKeys) TakeFirst(dataSet, last);
        return EncodeInParts(dataSet, depth, encode) & EncodeInParts(last, depth, encode);
    }

    // What the toolkit writes must be in memory. Of several large values there is one at a time; types were completed
    // before, so that no element has to see the others. Pixel data does not even come whole.
    template <class Encode>
    int EncodeInParts(DICOMObject& dataSet, int depth, const Encode& encode) {
        DICOMDataObject part;
        int encoded = 1;
        for (VR* element = FirstToLoad(dataSet, depth); element != nullptr; element = FirstToLoad(dataSet, depth)) {
            while (part.GetLastPushed() != element) TakeFirst(dataSet, part);
            m_Left.Load(*element);
            encoded &= encode(part);
        }
        return encoded & encode(dataSet);
    }

    static VR* FirstToLoad(const DICOMObject& dataSet, int depth) {
        VR* element = dataSet.GetFirst();
        while (element != nullptr && (!IsLeft(*element) || (depth == 0 && IsPixelData(*element))))
            element = dataSet.GetNext(element);
        return element;
    }

    static void TakeFirst(DICOMObject& dataSet, DICOMObject& into) {
        into.Push(dataSet.Take(dataSet.GetFirst()->m_Group, dataSet.GetFirst()->m_Element).release());
    }

    static bool HasLeftFragments(const VR& pixelData) {
        for (std::uint32_t i = 0; i < pixelData.GetItemCount(); ++i) {
            const VR* const fragment = GetFragment(pixelData, i);
            if (fragment != nullptr && IsLeft(*fragment)) return true;
        }
        return false;
    }

    static bool WriteDelimiter(Buffer& buffer, std::uint16_t element, std::uint32_t length) {
        return buffer.WriteUINT16(ElementHeader::kDelimiters) && buffer.WriteUINT16(element) &&
               buffer.WriteUINT32(length);
    }

    static unsigned UnitFor(const Buffer& buffer, const VR& element) {
        return buffer.GetByteOrder() == Buffer::kLittleEndian ? 1 : GetSwapUnit(element.m_TypeCode);
    }

    bool WriteLeft(Buffer& buffer, const VR& element) {
        constexpr std::uint32_t kStep = 1U << 20;
        std::vector<unsigned char> bytes(std::min(kStep, element.m_Length));
        for (std::uint32_t done = 0; done < element.m_Length;) {
            const std::span<unsigned char> step(bytes.data(), std::min(kStep, element.m_Length - done));
            m_Left.Read(element, done, step);
            platform::SwapUnits(step.data(), step.size(), UnitFor(buffer, element));
            if (!buffer.Write(step.data(), step.size())) return false;
            done += static_cast<std::uint32_t>(step.size());
        }
        return true;
    }

    CodecManager& m_Codecs;
    LeftValueReader& m_Left;
};

bool WriteParts(Buffer& buffer, DICOMDataObject& dataSet, std::string_view syntax, CodecManager& codecs,
                LeftValueReader& left) {
    static constexpr char kMarker[] = {'D', 'I', 'C', 'M'};
    StandardOrderCodec codec(codecs, left);
    if (codec.PrepareMetaInformation(&dataSet, 3) == 0) return false;
    if (IsNativeTransferSyntax(syntax)) PutText(dataSet, tags::TransferSyntaxUID, syntax);
    return buffer.WriteZeros(128) && buffer.Write(kMarker, sizeof kMarker) &&
           codec.EncodeMetaInformation(buffer, dataSet) != 0 &&
           codec.EncodeStream(FindTransferSyntax(syntax, kExplicitLittleEndian), buffer, &dataSet) != 0;
}

// See `SaveDataSet`.
class UnfinishedFile {
public:
    /// Throws `Error`.
    explicit UnfinishedFile(const std::string& name);

    /// What to write to.
    const std::string& GetPath() const { return m_bDevice ? m_Name : m_File.GetUnfinished(); }
    /// Gives the file its name. Throws `Error`.
    void Finish();

private:
    std::string m_Name;
    bool m_bDevice = false;
    platform::ReplacingFile m_File;
};

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

bool IsMediaDirectory(const DICOMObject& dataSet) {
    return FindText(dataSet, tags::MediaStorageSOPClassUID) == kMediaDirectoryClassUid ||
           FindElement(dataSet, tags::DirectoryRecordSequence) != nullptr;
}

bool WriteDataSet(Buffer& buffer, DICOMDataObject& dataSet, std::string_view syntax, CodecManager& codecs,
                  const Watch& watch) {
    LeftValueReader left(watch);
    return WriteParts(buffer, dataSet, syntax, codecs, left) && buffer.Flush();
}

bool SaveDataSet(const std::string& path, DICOMDataObject& dataSet, std::string_view syntax, CodecManager& codecs,
                 const Watch& watch) {
    UnfinishedFile unfinished(path);
    FileOutputBuffer buffer;
    buffer.SetStopQuestion(watch.GetStopQuestion());
    errno = 0;
    const bool opened = buffer.Open(unfinished.GetPath().c_str());
    const bool written = opened && WriteDataSet(buffer, dataSet, syntax, codecs, watch);
    if (!(opened && buffer.Close()) || !written) {
        const int error = errno;
        watch.StopIfAsked();
        if (!codecs.GetError().empty()) return false;
        throw Error(ErrorKind::Disk, "cannot write " + path + ": " + SystemText(error)).InFile(path);
    }
    unfinished.Finish();
    return true;
}

}  // namespace korvane
