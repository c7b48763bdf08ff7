#include "DICOMFile.h"

#include "Dicom/Lib/dataset/Encapsulation.h"
#include "Dicom/Lib/dataset/ValueText.h"
#include "Dicom/Lib/dictionary/PublicDictionary.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/dictionary/TypeCompletion.h"
#include "Dicom/Lib/stream/FileBuffer.h"
#include "Dicom/Lib/stream/MemoryBuffer.h"
#include "Dicom/Lib/syntax/TransferSyntaxTable.h"

#include <cerrno>
#include <cstring>
#include <new>

namespace {

constexpr std::size_t kPreambleBytes = 128;
constexpr char kMarker[] = {'D', 'I', 'C', 'M'};
constexpr std::size_t kMarkedBytes = kPreambleBytes + sizeof kMarker;

}  // namespace

// Explicit when the sixth byte is above 10 as a signed number: there a second type letter, in an implicit stream the
// second byte of a length. Lengths whose second byte is 128 and more count as implicit so.
int DetectSyntax(Buffer& buffer) {
    const unsigned char* const bytes = buffer.Peek(6);
    const bool isExplicit = bytes != nullptr && static_cast<signed char>(bytes[5]) > 10;
    return isExplicit ? kExplicitLittleEndian : kImplicitLittleEndian;
}

bool SkipPreamble(Buffer& buffer) {
    const unsigned char* const head = buffer.Peek(kMarkedBytes);
    const bool marked = head != nullptr && std::memcmp(head + kPreambleBytes, kMarker, sizeof kMarker) == 0;
    return marked && buffer.Skip(kMarkedBytes);
}

std::unique_ptr<DICOMDataObject> DICOMFileReader::Load(const char* path, int option) {
    FileInputBuffer buffer;
    if (!buffer.Open(path)) return nullptr;
    buffer.SetStopQuestion(m_Stop);
    auto dataSet = LoadStream(buffer, option);
    if (!buffer.HasFailed()) return dataSet;
    dataSet.reset();
    errno = buffer.GetError();
    return nullptr;
}

std::unique_ptr<DICOMDataObject> DICOMFileReader::LoadMemory(const void* bytes, std::size_t count, int option) {
    MemoryInputBuffer buffer(bytes, count);
    return LoadStream(buffer, option);
}

std::unique_ptr<DICOMDataObject> DICOMFileReader::LoadStream(Buffer& buffer, int option) {
    m_bComplete = false;
    m_bDeflated = false;
    m_TransferSyntax.clear();
    std::unique_ptr<DICOMDataObject> dataSet;
    try {
        dataSet = std::make_unique<DICOMDataObject>();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    m_bPreamble = SkipPreamble(buffer);
    m_Syntax = DetectSyntax(buffer);
    if (m_Codec.ParseMetaInformation(buffer, dataSet.get()) == 0) return dataSet;
    m_bDeflated = !SelectSyntax(buffer, *dataSet);
    if (m_bDeflated) return dataSet;
    // A delimiter on the top level ends a parse, not the file.
    bool whole = true;
    do {
        if (m_Codec.ParseStream(m_Syntax, buffer, dataSet.get(), option) == 0) return dataSet;
        whole = whole && m_Codec.WasWhole();
    } while (!m_Codec.HasStopped() && buffer.HasData());
    m_bComplete = whole;
    return dataSet;
}

// The number that what follows group 0002 is read with; false for data that cannot be read at all.
bool DICOMFileReader::SelectSyntax(Buffer& buffer, const DICOMObject& dataSet) {
    const VR* const named = dataSet.GetVR(tags::TransferSyntaxUID);
    if (named == nullptr) {
        m_Syntax = DetectSyntax(buffer);
        return true;
    }
    m_TransferSyntax = TrimmedUid(named->GetText());
    m_Syntax = FindTransferSyntax(m_TransferSyntax, m_Syntax);
    return !IsDeflatedTransferSyntax(m_TransferSyntax);
}

DICOMDataObject* LoadDICOMFile(const char* path, int option, TransferSyntaxCodec* codec) {
    TransferSyntaxCodec plain;
    return DICOMFileReader(codec != nullptr ? *codec : plain).Load(path, option).release();
}

int SaveDICOMFile(const char* path, int mode, DICOMObject* dataSet, TransferSyntaxCodec* codec) {
    if (mode < 1 || mode > 3 || path == nullptr || dataSet == nullptr) return 0;
    TransferSyntaxCodec plain;
    TransferSyntaxCodec& used = codec != nullptr ? *codec : plain;
    const bool refused = mode == 1 ? HasEncapsulatedPixels(*dataSet) : used.PrepareMetaInformation(dataSet, mode) == 0;
    if (refused) return 0;
    FileOutputBuffer file;
    if (!file.Open(path)) return 0;
    if (mode == 3) {
        CompleteTypes(*dataSet, used.GetDictionary() != nullptr ? used.GetDictionary() : &SharedPublicDictionary());
    }
    if (mode != 1) {
        file.WriteZeros(kPreambleBytes);
        file.Write(kMarker, sizeof kMarker);
        if (used.EncodeMetaInformation(file, *dataSet) == 0) return 0;
    }
    const int encoded =
        mode == 3 ? used.EncodeStream(kExplicitLittleEndian, file, dataSet) : used.DefaultEncode(file, dataSet);
    return file.Close() && encoded != 0 ? 1 : 0;
}
