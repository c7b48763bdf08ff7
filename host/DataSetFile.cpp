#include "DataSetFile.h"

#include "HostError.h"

#include <Korvane/platform/Bytes.h>
#include <Korvane/platform/File.h>

#include <cctype>
#include <cerrno>
#include <cstring>

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

enum class Beginning { NotDicom, Marked, LittleEndian, BigEndian };

Beginning LookAtBeginning(const std::string& path) {
    unsigned char head[132];
    platform::InputFile file;
    errno = 0;
    const bool opened = file.Open(path.c_str());
    const std::size_t count = opened ? file.Read(head, sizeof head) : 0;
    if (!opened || file.HasFailed()) {
        StopIfInterrupted();
        throw HostError("cannot read " + path + ": " + SystemText(errno));
    }
    if (count == sizeof head && std::memcmp(head + 128, "DICM", 4) == 0) return Beginning::Marked;
    if (count < 8) return Beginning::NotDicom;
    const auto little = platform::LoadLittle<std::uint16_t>(head);
    if (little == 0x0002 || little == 0x0008) return Beginning::LittleEndian;
    const bool typed = std::isupper(head[4]) != 0 && std::isupper(head[5]) != 0;
    return platform::LoadBig<std::uint16_t>(head) == 0x0008 && typed ? Beginning::BigEndian : Beginning::NotDicom;
}

/// A bare data set in big endian, which the library's test for the syntax does not see.
void ReadBigEndian(const std::string& path, NotingCodec& codec, int option, DataSetFile& file) {
    FileInputBuffer buffer;
    auto dataSet = std::make_unique<DICOMDataObject>();
    if (!buffer.Open(path.c_str())) throw HostError("cannot read " + path + ": " + SystemText(errno));
    file.complete = codec.ParseStream(kExplicitBigEndian, buffer, dataSet.get(), option) != 0;
    file.transferSyntax = kExplicitBigEndianUid;
    file.dataSet = std::move(dataSet);
}

void ReadWithLibrary(const std::string& path, NotingCodec& codec, int option, DataSetFile& file) {
    DICOMFileReader reader(codec);
    errno = 0;
    file.dataSet = reader.Load(path.c_str(), option);
    if (file.dataSet == nullptr) throw HostError("cannot read " + path + ": " + SystemText(errno));
    file.complete = reader.IsComplete();
    file.deflated = reader.IsDeflated();
    file.transferSyntax = reader.GetTransferSyntax();
    if (file.transferSyntax.empty()) {
        file.transferSyntax =
            reader.GetSyntax() == kImplicitLittleEndian ? kImplicitLittleEndianUid : kExplicitLittleEndianUid;
    }
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

DataSetFile ReadDataSetFile(const std::string& path, int option) {
    DataSetFile file;
    const Beginning beginning = LookAtBeginning(path);
    if (beginning == Beginning::NotDicom) return file;
    NotingCodec codec(file);
    try {
        if (beginning == Beginning::BigEndian) {
            ReadBigEndian(path, codec, option, file);
        } else {
            ReadWithLibrary(path, codec, option, file);
        }
    } catch (const HostError&) {
        StopIfInterrupted();
        throw;
    }
    if (codec.HasStopped()) file.encapsulated = codec.GetStoppedLength() == kUndefinedLength;
    file.hasPixels = file.hasPixels || codec.HasStopped();
    if (const VR* const pixels = FindElement(*file.dataSet, MakeTag(0x7FE0, 0x0010)); pixels != nullptr) {
        file.hasPixels = true;
        file.encapsulated = IsEncapsulated(pixels);
    }
    return file;
}

std::string DescribeSyntax(const std::string& uid) {
    for (const SyntaxName& known : kSyntaxNames) {
        if (uid == known.uid) return std::string(known.name) + " (" + uid + ")";
    }
    return uid;
}
