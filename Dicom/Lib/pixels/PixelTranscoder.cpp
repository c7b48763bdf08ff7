#include "PixelTranscoder.h"

#include "Dicom/Lib/dataset/Encapsulation.h"
#include "Dicom/Lib/dataset/ValueText.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/syntax/DiagnosticDump.h"
#include "base/Bytes.h"
#include "platform/memory/Memory.h"

#include <cstring>
#include <new>
#include <vector>

namespace {

constexpr std::size_t kErrorBytes = 256;
constexpr std::uint32_t kItemHeader = 8;

/// Collects what a codec writes; hopeless encodings end early.
struct Sink {
    std::vector<unsigned char>& bytes;
    std::size_t limit = 0;
    bool isFull = false;
    bool outOfMemory = false;
};

/// Called by the module: nothing may be thrown across it.
extern "C" int WriteToSink(void* context, const void* bytes, std::size_t count) {
    auto& sink = *static_cast<Sink*>(context);
    sink.isFull = sink.isFull || count > sink.limit - sink.bytes.size();
    if (sink.isFull) return 0;
    const auto* const first = static_cast<const unsigned char*>(bytes);
    try {
        sink.bytes.insert(sink.bytes.end(), first, first + count);
    } catch (const std::bad_alloc&) {
        sink.outOfMemory = true;
        return 0;
    }
    return 1;
}

bool IsSameForm(const DcmFrameFormat& a, const DcmFrameFormat& b) {
    return a.bitsStored == b.bitsStored && a.highBit == b.highBit && a.pixelRepresentation == b.pixelRepresentation &&
           a.planarConfiguration == b.planarConfiguration && std::strcmp(a.photometric, b.photometric) == 0;
}

}  // namespace

void PixelTranscoder::BufferDeleter::operator()(unsigned char* block) const {
    platform::FreeBuffer(block);
}

bool PixelTranscoder::Fail(std::string reason) {
    m_Error = std::move(reason);
    m_pResult.reset();
    return false;
}

bool PixelTranscoder::FailFrame(std::uint32_t index, std::string_view reason) {
    const std::string where = m_Format.frames > 1 ? "frame " + std::to_string(index + 1) + ": " : "";
    return Fail(where + (reason.empty() ? "the codec gave no reason" : Printable(reason)));
}

bool PixelTranscoder::Begin(const DICOMObject& dataSet) {
    m_bLossy = false;
    m_StreamBytes = 0;
    m_pResult = std::make_unique<VR>(std::uint16_t{0x7FE0}, std::uint16_t{0x0010}, 0, 0);
    const std::string fault = ReadImageFormat(dataSet, m_Format);
    return fault.empty() || Fail(fault);
}

/// Keeps what the codec changed in the format, if it may.
bool PixelTranscoder::TakeFormat(std::uint32_t index, const DcmFrameFormat& format) {
    if (!IsAllowedChange(m_Format.frame, format))
        return FailFrame(index, "the codec gave pixels of an impossible form");
    if (index == 0) m_NewFormat = format;
    if (!IsSameForm(format, m_NewFormat))
        return FailFrame(index, "pixels of another form than those of the first frame");
    m_bLossy = m_bLossy || format.lossy != 0;
    return true;
}

bool PixelTranscoder::DecodeFrame(std::uint32_t index, std::span<const unsigned char> stream, unsigned char* pixels) {
    if (m_Stop && m_Stop()) return Fail("stopped");
    if (stream.empty()) return FailFrame(index, "no data");
    DcmFrameFormat format = m_Format.frame;
    char error[kErrorBytes] = {};
    const auto capacity = static_cast<std::size_t>(m_Format.frameBytes);
    const int decoded =
        m_Codec.DecodeFrame(&m_Codec, &format, stream.data(), stream.size(), pixels, capacity, error, sizeof error - 1);
    return decoded != 0 ? TakeFormat(index, format) : FailFrame(index, error);
}

/// What a header promises costs a few bytes to write: memory for all frames is taken once the first has been decoded.
bool PixelTranscoder::BeginDecoding(const DICOMObject& dataSet) {
    if (m_Codec.DecodeFrame == nullptr) return Fail("the codec does not decode");
    if (!Begin(dataSet)) return false;
    if (!m_Frames.Arrange(dataSet, m_Format.frames)) return Fail(m_Frames.GetError());
    m_StreamBytes = m_Frames.GetTotalBytes();
    m_pResult->m_TypeCode = m_Format.frame.bitsAllocated == 8 ? TypeCode("OB") : TypeCode("OW");
    if (m_Format.frames == 1) return true;
    std::vector<unsigned char> joined;
    m_pFirst.reset(
        static_cast<unsigned char*>(platform::AllocateBuffer(static_cast<std::size_t>(m_Format.frameBytes))));
    return DecodeFrame(0, m_Frames.GetFrame(0, joined), m_pFirst.get());
}

bool PixelTranscoder::Decode(const DICOMObject& dataSet) {
    return BeginDecoding(dataSet) && DecodeOthers();
}

bool PixelTranscoder::DecodeOthers() {
    const auto frameBytes = static_cast<std::size_t>(m_Format.frameBytes);
    unsigned char* const pixels = m_pResult->AllocateValue(static_cast<std::uint32_t>(m_Format.TotalBytes()));
    if (pixels == nullptr) throw std::bad_alloc();
    if (m_pFirst != nullptr) std::memcpy(pixels, m_pFirst.get(), frameBytes);
    std::vector<unsigned char> joined;
    for (std::uint32_t i = m_pFirst != nullptr ? 1 : 0; i < m_Frames.GetCount(); ++i) {
        if (!DecodeFrame(i, m_Frames.GetFrame(i, joined), pixels + i * frameBytes)) return false;
    }
    m_pFirst.reset();
    return true;
}

bool PixelTranscoder::DecodeFirst(const DICOMObject& dataSet, bool exact) {
    if (!BeginDecoding(dataSet)) return false;
    if (m_pFirst == nullptr || !(exact || m_bLossy)) return DecodeOthers();
    m_pResult->m_Length = static_cast<std::uint32_t>(m_Format.TotalBytes() + m_Format.TotalBytes() % 2);
    return true;
}

bool PixelTranscoder::WriteFrames(const FrameTaker& take) {
    const std::unique_ptr<VR> source = std::move(m_pSource);  // goes with the last frame
    const std::span<unsigned char> frame(m_pFirst.get(), static_cast<std::size_t>(m_Format.frameBytes));
    const bool isMarked = m_bLossy;
    std::vector<unsigned char> joined;
    for (std::uint32_t i = 0; i < m_Frames.GetCount(); ++i) {
        if (i > 0 && !DecodeFrame(i, m_Frames.GetFrame(i, joined), frame.data())) return false;
        if (m_bLossy != isMarked) return FailFrame(i, "compressed with loss, by a codec that does not do so");
        if (!take(frame)) return false;
    }
    return true;
}

bool PixelTranscoder::EncodeFrame(std::uint32_t index, const unsigned char* pixels) {
    if (m_Stop && m_Stop()) return Fail("stopped");
    DcmFrameFormat format = m_Format.frame;
    char error[kErrorBytes] = {};
    m_Scratch.clear();
    Sink sink{m_Scratch};
    // More than any lossless coding needs, and far below what a fragment's length can say.
    sink.limit = static_cast<std::size_t>(std::min<std::uint64_t>(m_Format.frameBytes * 8 + 65536, 0x7FFFFFFF));
    const int encoded = m_Codec.EncodeFrame(&m_Codec, &format, pixels, static_cast<std::size_t>(m_Format.frameBytes),
                                            WriteToSink, &sink, error, sizeof error - 1);
    if (sink.outOfMemory) throw std::bad_alloc();
    if (sink.isFull) return FailFrame(index, "encoding makes it many times larger");
    if (encoded == 0) return FailFrame(index, error);
    if (sink.bytes.empty()) return FailFrame(index, "the codec wrote nothing");
    if (AppendFragment(*m_pResult, sink.bytes.data(), static_cast<std::uint32_t>(sink.bytes.size())) == 0) {
        throw std::bad_alloc();
    }
    m_StreamBytes += sink.bytes.size();
    return TakeFormat(index, format);
}

bool PixelTranscoder::Encode(const DICOMObject& dataSet) {
    if (m_Codec.EncodeFrame == nullptr) return Fail("the codec does not encode");
    if (!Begin(dataSet)) return false;
    const VR* const pixelData = dataSet.GetVR(tags::PixelData);
    const std::uint64_t total = m_Format.TotalBytes();
    if (pixelData == nullptr || pixelData->m_pData == nullptr) return Fail("no pixel data");
    const std::uint64_t present = pixelData->m_Length;
    if (present != total + total % 2) {  // what is too much would be lost
        return Fail(std::to_string(present) + " bytes of pixel data, not the " + std::to_string(total) +
                    " that the image has");
    }
    m_pResult->m_TypeCode = TypeCode("OB");
    const std::vector<unsigned char> table(m_Format.frames > 1 ? std::size_t{4} * m_Format.frames : 0);
    if (AppendFragment(*m_pResult, table.data(), static_cast<std::uint32_t>(table.size())) == 0) throw std::bad_alloc();
    const auto frameBytes = static_cast<std::size_t>(m_Format.frameBytes);
    for (std::uint32_t i = 0; i < m_Format.frames; ++i) {
        if (!EncodeFrame(i, pixelData->m_pData + i * frameBytes)) return false;
    }
    WriteOffsetTable();
    return true;
}

/// Where each frame's item begins, counted from the first (PS3.5 A.4). Beyond 4 GB the table stays empty, as it may; of
/// fewer than two frames it has no entries, and the trace still tells of each.
void PixelTranscoder::WriteOffsetTable() {
    VR* const table = GetFragment(*m_pResult, 0);
    Trace(kDumpTransferSyntax, "BASIC OFFSET TABLE\n");
    std::uint64_t offset = 0;
    for (std::uint32_t i = 0; i < m_Format.frames; ++i) {
        if (offset > UINT32_MAX) {
            m_pResult->GetItem(0)->Reset();
            return;
        }
        const auto entry = static_cast<std::uint32_t>(offset);
        if (table != nullptr) platform::StoreLittle(table->m_pData + std::size_t{4} * i, entry);
        Trace(kDumpTransferSyntax, "%d -> %d %X\n", static_cast<int>(i), static_cast<int>(entry), entry);
        offset += std::uint64_t{kItemHeader} + GetFragment(*m_pResult, i + 1)->m_Length;
    }
}

bool PixelTranscoder::Apply(DICOMObject& dataSet, std::string_view syntax) {
    int done = WriteChanges(dataSet, m_Format.frame, m_NewFormat);
    if (m_pFirst != nullptr) {
        m_pSource = dataSet.Take(tags::PixelData);
        done &= dataSet.Push(m_pResult.release());
    } else {
        done &= dataSet.GetVR(tags::PixelData)->TakeValueFrom(m_pResult.get());
    }
    if (m_bLossy) {
        const auto ratio = static_cast<double>(m_Format.TotalBytes()) / static_cast<double>(m_StreamBytes);
        done &= MarkAsLossy(dataSet, ratio, syntax);
    }
    // Extended offset table, its lengths and the total length belong to the fragments that were there.
    for (const unsigned element : {1U, 2U, 3U}) dataSet.Take(0x7FE0, static_cast<std::uint16_t>(element));
    return done != 0 || Fail("out of memory");
}
