// The entry points, and what parser and encoder have in common.
#include "TransferSyntaxCodec.h"

#include "DataSetParse.h"
#include "DiagnosticDump.h"
#include "Dicom/Lib/dataset/Encapsulation.h"
#include "Dicom/Lib/dataset/ReplaceValue.h"
#include "Dicom/Lib/dataset/ValueText.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/dictionary/TypeCompletion.h"
#include "TransferSyntaxTable.h"

#include <new>
#include <string>
#include <utility>

namespace {

// Banner and byte order of an entry point.
void Begin(Buffer& buffer, int byteOrder, const char* banner) {
    Trace(kDumpTransferSyntax, "%s", banner);
    buffer.SetByteOrder(byteOrder);
}

}  // namespace

TransferSyntaxCodec::TransferSyntaxCodec(DcmDictionary* dictionary) : m_pDictionary(dictionary) {}

TransferSyntaxCodec::~TransferSyntaxCodec() = default;

int TransferSyntaxCodec::ParseImplicitLittleEndian(Buffer& buffer, DICOMObject* target) {
    Begin(buffer, Buffer::kLittleEndian, "-----------------------------\nParsing incoming Implicit Little Endian\n");
    return Implicit_ParseRawVRIntoDCM(buffer, target, 0);
}

int TransferSyntaxCodec::EncodeImplicitLittleEndian(Buffer& buffer, DICOMObject* dataSet) {
    Begin(buffer, Buffer::kLittleEndian, "-----------------------------\nParsing outgoing Implicit Little Endian\n");
    return ImplicitEncode(buffer, dataSet, 0);
}

int TransferSyntaxCodec::ParseExplicitLittleEndian(Buffer& buffer, DICOMObject* target) {
    // This banner alone has no dashed line; readers of the log rely on the texts as they are.
    Begin(buffer, Buffer::kLittleEndian, "Parsing incoming Explicit Little Endian\n");
    return ExplicitParse(buffer, target, 0);
}

int TransferSyntaxCodec::EncodeExplicitLittleEndian(Buffer& buffer, DICOMObject* dataSet) {
    Begin(buffer, Buffer::kLittleEndian, "-----------------------------\nParsing outgoing Explicit Little Endian\n");
    return ExplicitEncode(buffer, dataSet, 0);
}

int TransferSyntaxCodec::ParseExplicitBigEndian(Buffer& buffer, DICOMObject* target) {
    Begin(buffer, Buffer::kBigEndian, "-----------------------------\nParsing incoming Explicit Big Endian\n");
    return ExplicitParse(buffer, target, 0);
}

int TransferSyntaxCodec::EncodeExplicitBigEndian(Buffer& buffer, DICOMObject* dataSet) {
    Begin(buffer, Buffer::kBigEndian, "-----------------------------\nParsing outgoing Explicit Big Endian\n");
    return ExplicitEncode(buffer, dataSet, 0);
}

int TransferSyntaxCodec::Implicit_ParseRawVRIntoDCM(Buffer& buffer, DICOMObject* target, int depth) {
    return Parse(buffer, target, depth, false);
}

int TransferSyntaxCodec::ExplicitParse(Buffer& buffer, DICOMObject* target, int depth) {
    return Parse(buffer, target, depth, true);
}

// What is nested comes here through the virtual operations, and belongs to the parse that is going on.
int TransferSyntaxCodec::Parse(Buffer& buffer, DICOMObject* target, int depth, bool explicitVR) {
    if (target == nullptr || depth > DataSetParse::kDeepest) return 0;
    const DataSetParse::Level level{buffer, *target, depth, explicitVR};
    if (depth > 0 && m_pParse != nullptr) return m_pParse->ParseLevel(level);
    return RunParse([&](DataSetParse& parse) {
        const int result = parse.ParseLevel(level);
        parse.DecideSigns(*target);
        return result;
    });
}

int TransferSyntaxCodec::ParseMetaInformation(Buffer& buffer, DICOMObject* target) {
    buffer.SetByteOrder(Buffer::kLittleEndian);
    return RunParse([&](DataSetParse& parse) { return parse.ParseMetaInformation({buffer, *target, 0, true}); });
}

// Within `work` a parse of its own is going on. A lack of memory is a failure like others.
template <class Work>
int TransferSyntaxCodec::RunParse(Work&& work) {
    DataSetParse parse(*this, m_Option);
    DataSetParse* const outer = std::exchange(m_pParse, &parse);
    int result = 0;
    m_bMemoryShort = false;
    try {
        result = work(parse);
    } catch (const std::bad_alloc&) {
        m_bMemoryShort = true;
    }
    m_pParse = outer;
    m_Stopped = parse.GetStoppedLength();
    m_bWhole = result != 0 && parse.IsWhole();
    return result;
}

int TransferSyntaxCodec::ParseStream(int syntax, Buffer& buffer, DICOMObject* target, int option) {
    m_Option = option;
    int result;
    switch (syntax) {
    case kImplicitLittleEndian: result = ParseImplicitLittleEndian(buffer, target); break;
    case kExplicitLittleEndian: result = ParseExplicitLittleEndian(buffer, target); break;
    default: result = ParseExplicitBigEndian(buffer, target); break;
    }
    m_Option = kParseAll;
    return result;
}

int TransferSyntaxCodec::EncodeStream(int syntax, Buffer& buffer, DICOMObject* dataSet) {
    switch (syntax) {
    case kImplicitLittleEndian: return EncodeImplicitLittleEndian(buffer, dataSet);
    case kExplicitLittleEndian: return EncodeExplicitLittleEndian(buffer, dataSet);
    default: return EncodeExplicitBigEndian(buffer, dataSet);
    }
}

int TransferSyntaxCodec::DefaultEncode(Buffer& buffer, DICOMObject* dataSet) {
    return EncodeImplicitLittleEndian(buffer, dataSet);
}

int TransferSyntaxCodec::OnReadPixelData(Buffer& /*buffer*/, VR& /*pixelData*/) {
    return (m_Option & kStopBeforePixelData) != 0 ? 1 : 0;
}

int TransferSyntaxCodec::PrepareMetaInformation(DICOMObject* dataSet, int mode) {
    const VR* const present = dataSet->GetVR(tags::TransferSyntaxUID);
    std::string syntax(mode == 2 ? kImplicitLittleEndianUid : kExplicitLittleEndianUid);
    if (HasEncapsulatedPixels(*dataSet)) {
        if (mode != 3 || present == nullptr) return 0;
        syntax = TrimmedUid(present->GetText());
        if (IsNativeTransferSyntax(syntax)) return 0;
    }
    static constexpr unsigned char kVersion[2] = {0x00, 0x01};
    int done = ReplaceValue(*dataSet, tags::FileMetaInformationVersion, TypeCode("OB"), kVersion, sizeof kVersion);
    const VR* const sopClass = dataSet->GetVR(tags::SOPClassUID);
    const VR* const sopInstance = dataSet->GetVR(tags::SOPInstanceUID);
    if (sopClass != nullptr)
        done &= ReplaceText(*dataSet, tags::MediaStorageSOPClassUID, TypeCode("UI"), sopClass->GetText());
    if (sopInstance != nullptr)
        done &= ReplaceText(*dataSet, tags::MediaStorageSOPInstanceUID, TypeCode("UI"), sopInstance->GetText());
    done &= ReplaceText(*dataSet, tags::TransferSyntaxUID, TypeCode("UI"), syntax);
    done &= ReplaceText(*dataSet, tags::ImplementationClassUID, TypeCode("UI"), kImplementationClassUid);
    done &= ReplaceText(*dataSet, tags::ImplementationVersionName, TypeCode("SH"), kImplementationVersionName);
    return done;
}

// Completes the type by the dictionary; false when it stays unknown.
bool TransferSyntaxCodec::CompleteType(VR& element) {
    if (m_pDictionary == nullptr || m_pDictionary->SetTypeCode(&element) == 0) return false;
    if (m_bSignedPixels && element.m_TypeCode == TypeCode("US") && IsUsOrSs(*m_pDictionary, element)) {
        element.m_TypeCode = TypeCode("SS");
    }
    return true;
}
