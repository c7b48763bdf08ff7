#include "DataSetFile.h"

#include "../core/Error.h"
#include "InflateBuffer.h"

#include "base/Bytes.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <new>

namespace korvane {

namespace {

constexpr std::uint32_t kUndefinedLength = 0xFFFFFFFFU;

/// Notes what stands where Pixel Data begins.
class NotingCodec : public DictionaryCodec {
public:
    explicit NotingCodec(DataSetFile& file) : m_File(file) {}

    int OnReadPixelData(Buffer& buffer, VR& pixelData) override {
        Note(pixelData.m_Length, buffer.GetRemaining());
        return DictionaryCodec::OnReadPixelData(buffer, pixelData);
    }

    void Note(std::uint32_t length, std::uint64_t remaining) {
        m_File.hasPixels = true;
        m_File.encapsulated = length == kUndefinedLength;
        m_File.pixelLength = m_File.encapsulated ? 0 : length;
        m_File.pixelsPresent = std::min<std::uint64_t>(m_File.pixelLength, remaining);
    }

private:
    DataSetFile& m_File;
};

/// Whether the stream begins as a bare data set in big endian does, which the library's test for the syntax does not see.
enum class Beginning { NotDicom, Dicom, BigEndian };

Beginning LookAtBeginning(Buffer& buffer) {
    const unsigned char* head = buffer.Peek(132);
    if (head != nullptr && std::memcmp(head + 128, "DICM", 4) == 0) return Beginning::Dicom;
    head = buffer.Peek(8);
    if (head == nullptr) return Beginning::NotDicom;
    const auto little = platform::LoadLittle<std::uint16_t>(head);
    if (little == 0x0002 || little == 0x0008) return Beginning::Dicom;
    const bool typed = std::isupper(head[4]) != 0 && std::isupper(head[5]) != 0;
    return platform::LoadBig<std::uint16_t>(head) == 0x0008 && typed ? Beginning::BigEndian : Beginning::NotDicom;
}

void ReadBigEndian(Buffer& buffer, NotingCodec& codec, int option, DataSetFile& file) {
    auto dataSet = std::make_unique<DICOMDataObject>();
    file.complete = codec.ParseStream(kExplicitBigEndian, buffer, dataSet.get(), option) != 0;
    file.transferSyntax = kExplicitBigEndianUid;
    file.dataSet = std::move(dataSet);
}

void ReadWithLibrary(Buffer& buffer, NotingCodec& codec, int option, DataSetFile& file) {
    DICOMFileReader reader(codec);
    file.dataSet = reader.LoadStream(buffer, option);
    if (file.dataSet == nullptr) throw std::bad_alloc();
    file.complete = reader.IsComplete();
    file.hasPreamble = reader.HasPreamble();
    file.transferSyntax = reader.GetTransferSyntax();
    if (file.transferSyntax.empty()) {
        file.transferSyntax =
            reader.GetSyntax() == kImplicitLittleEndian ? kImplicitLittleEndianUid : kExplicitLittleEndianUid;
    }
    if (!reader.IsDeflated()) return;
    InflateBuffer inflated(buffer);
    file.complete = codec.ParseStream(kExplicitLittleEndian, inflated, file.dataSet.get(), option) != 0;
}

struct SyntaxName {
    const char* uid;
    const char* name;
};

constexpr SyntaxName kSyntaxNames[] = {
    {"1.2.840.10008.1.2", "Implicit VR Little Endian"},
    {"1.2.840.10008.1.2.1", "Explicit VR Little Endian"},
    {"1.2.840.10008.1.2.1.99", "Deflated Explicit VR Little Endian"},
    {"1.2.840.10008.1.2.2", "Explicit VR Big Endian"},
    {"1.2.840.10008.1.2.4.50", "JPEG Baseline (Process 1)"},
    {"1.2.840.10008.1.2.4.51", "JPEG Extended (Process 2 and 4)"},
    {"1.2.840.10008.1.2.4.57", "JPEG Lossless (Process 14)"},
    {"1.2.840.10008.1.2.4.70", "JPEG Lossless (Process 14, first-order prediction)"},
    {"1.2.840.10008.1.2.4.80", "JPEG-LS Lossless"},
    {"1.2.840.10008.1.2.4.81", "JPEG-LS Near-lossless"},
    {"1.2.840.10008.1.2.4.90", "JPEG 2000 (lossless only)"},
    {"1.2.840.10008.1.2.4.91", "JPEG 2000"},
    {"1.2.840.10008.1.2.4.100", "MPEG2 Main Profile"},
    {"1.2.840.10008.1.2.4.102", "MPEG-4 AVC/H.264 High Profile"},
    {"1.2.840.10008.1.2.5", "RLE Lossless"},
};

}  // namespace

DataSetFile ReadDataSet(Buffer& buffer, int option) {
    DataSetFile file;
    const Beginning beginning = LookAtBeginning(buffer);
    if (beginning == Beginning::NotDicom) return file;
    NotingCodec codec(file);
    if (beginning == Beginning::BigEndian) {
        ReadBigEndian(buffer, codec, option, file);
    } else {
        ReadWithLibrary(buffer, codec, option, file);
    }
    if (codec.HasStopped()) file.encapsulated = codec.GetStoppedLength() == kUndefinedLength;
    file.hasPixels = file.hasPixels || codec.HasStopped();
    if (const VR* const pixels = FindElement(*file.dataSet, tags::PixelData); pixels != nullptr) {
        file.hasPixels = true;
        file.encapsulated = IsEncapsulated(pixels);
    }
    return file;
}

DataSetFile ReadDataSetFile(const std::string& path, int option, const Watch& watch) {
    FileInputBuffer buffer;
    buffer.SetStopQuestion(watch.GetStopQuestion());
    DataSetFile file;
    errno = 0;
    const bool opened = buffer.Open(path.c_str());
    if (opened) file = ReadDataSet(buffer, option);
    if (!opened || buffer.HasFailed()) {
        const int error = opened ? buffer.GetError() : errno;
        watch.StopIfAsked();
        const bool missing = error == ENOENT || error == ENOTDIR;
        throw Error(missing ? ErrorKind::NotFound : ErrorKind::Disk, "cannot read " + path + ": " + SystemText(error))
            .InFile(path);
    }
    return file;
}

std::string DescribeSyntax(const std::string& uid) {
    for (const SyntaxName& known : kSyntaxNames) {
        if (uid == known.uid) return std::string(known.name) + " (" + uid + ")";
    }
    return uid;
}

}  // namespace korvane
