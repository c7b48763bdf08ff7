#include "Frames.h"

#include "../core/Error.h"
#include "DataSetFile.h"
#include "LeftValues.h"

#include "Dicom/Lib/pixels/FrameIndex.h"
#include "base/Bytes.h"

#include <algorithm>
#include <new>
#include <span>
#include <utility>

namespace korvane {

namespace {

constexpr std::size_t kAligned = 8;  // of the widest numbers: left values are read from its multiples on

using Bytes = std::vector<unsigned char>;

// Bits of a frame of native pixels.
std::uint64_t FrameBits(const DICOMObject& dataSet) {
    const auto number = [&](Tag tag, int otherwise) {
        return static_cast<std::uint64_t>(std::clamp(FindInteger(dataSet, tag, otherwise), 0, 0xFFFF));
    };
    const std::string photometric = FindText(dataSet, tags::PhotometricInterpretation);
    const bool isHalved = photometric == "YBR_FULL_422" || photometric == "YBR_PARTIAL_422";
    const std::uint64_t samples = isHalved ? 2 : number(tags::SamplesPerPixel, 1);
    return number(tags::Rows, 0) * number(tags::Columns, 0) * samples * number(tags::BitsAllocated, 0);
}

VR* FindPixels(const DICOMObject& dataSet) {
    for (const Tag tag : {tags::PixelData, tags::FloatPixelData, tags::DoubleFloatPixelData}) {
        if (VR* const pixels = FindElement(dataSet, tag)) return pixels;
    }
    return nullptr;
}

// Of compressed pixel data: in memory, or left in the file.
struct Fragment {
    const VR* held = nullptr;
    void* left = nullptr;  // what the element referred to (`LeftValueReader`)
    std::uint32_t length = 0;
};

// Not for the data set of one frame.
bool IsOfAllFrames(const VR& element) {
    // Tables of offsets are of the pixels' group too.
    return element.m_Group == GroupOf(tags::PixelData) || element.GetTag() == tags::PerFrameFunctionalGroupsSequence;
}

}  // namespace

struct FrameReader::State {
    State(const std::string& file, const FrameOptions& options) : path(file), watch(options.watcher), left(watch) {
        codecs.SetStopQuestion(watch.GetStopQuestion());
        const KeptGroups groups = options.dropGroups ? KeptGroups::None() : KeptGroups::All();
        read = ReadDataSetFile(path, kParseAll, watch, options.leniency, kLeftInFile, groups);
        if (read.dataSet == nullptr) Fail(ErrorKind::NotDicom, "not a DICOM file");
        findings = std::move(read.findings);
        pixels = FindPixels(*read.dataSet);
        if (pixels == nullptr) Fail(ErrorKind::Unsupported, "no pixel data");
        const int said = std::max(FindInteger(*read.dataSet, tags::NumberOfFrames, 1), 1);
        IsEncapsulated(pixels) ? FindCompressed(static_cast<std::uint32_t>(said))
                               : FindNative(static_cast<std::uint32_t>(said));
    }

    [[noreturn]] void Fail(ErrorKind kind, const std::string& why) const {
        throw Error(kind, path + ": " + why).InFile(path);
    }

    void Tell(FindingKind kind, const std::string& text) {
        findings.push_back({.kind = kind, .files = {path}, .text = path + ": " + text});
        watch.Tell(findings.back());
    }

    void FindNative(std::uint32_t said) {
        frameBits = FrameBits(*read.dataSet);
        const std::uint64_t present = frameBits > 0 ? std::uint64_t{pixels->m_Length} * 8 / frameBits : 0;
        if (present == 0) Fail(ErrorKind::Damaged, "the pixel data holds no frame");
        count = std::min<std::uint64_t>(said, present);
        if (count < said) {
            Tell(FindingKind::FramesMissing,
                 std::to_string(said) + " frames, of which the pixel data holds " + std::to_string(count));
        }
    }

    void FindCompressed(std::uint32_t said) {
        FrameIndex::Fragments fragments;
        Bytes basic;
        AppendTo(basic, FragmentAt(0), UINT32_MAX);
        bool isAnyHeld = false;
        for (std::uint32_t i = 1; i < pixels->GetItemCount(); ++i) {
            items.push_back(FragmentAt(i));
            fragments.sizes.push_back(items.back().length);
            isAnyHeld = isAnyHeld || items.back().held != nullptr;
        }
        if (!isAnyHeld) pixels->ClearValue();  // where each lies is known; there may be very many
        Bytes head;
        fragments.getHead = [&](std::uint32_t i) {
            head.clear();
            AppendTo(head, items[i], FrameIndex::Fragments::kHead);
            return FrameIndex::Bytes(head);
        };
        fragments.basicTable = basic;
        fragments.extendedTable = Loaded(FindElement(*read.dataSet, tags::ExtendedOffsetTable));
        FrameIndex index;
        if (!index.Arrange(fragments, said)) Fail(ErrorKind::Damaged, index.GetError());
        if (!index.GetRemark().empty()) Tell(FindingKind::WrongLengths, index.GetRemark());
        begins = index.GetBegins();
        count = said;
    }

    FrameIndex::Bytes Loaded(VR* element) {
        if (element == nullptr) return {};
        left.Load(*element);
        return element->m_pData != nullptr ? FrameIndex::Bytes(element->m_pData, element->m_Length)
                                           : FrameIndex::Bytes();
    }

    Fragment FragmentAt(std::uint32_t item) const {
        const VR* const element = GetFragment(*pixels, item);
        if (element == nullptr) return {};
        return {IsLeft(*element) ? nullptr : element, element->m_pReference, element->m_Length};
    }

    // No more than `most` bytes of it.
    void AppendTo(Bytes& bytes, const Fragment& fragment, std::uint32_t most) {
        const std::uint32_t wanted = std::min(fragment.length, most);
        if (wanted == 0) return;
        if (fragment.held != nullptr) {
            const unsigned char* const data = fragment.held->m_pData;
            if (data != nullptr) bytes.insert(bytes.end(), data, data + wanted);
            return;
        }
        VR element(pixels->GetTag(), 0, 0);
        element.m_Length = fragment.length;
        element.m_pReference = fragment.left;
        const std::size_t before = bytes.size();
        bytes.resize(before + wanted);
        left.Read(element, 0, std::span(bytes).subspan(before));
    }

    // All fragments of a frame, as they come.
    Bytes StreamOf(std::size_t frame) {
        Bytes stream;
        std::size_t size = 0;
        const auto fragments = std::span(items).subspan(begins[frame], begins[frame + 1] - begins[frame]);
        for (const Fragment& fragment : fragments) size += fragment.length;
        stream.reserve(size);
        for (const Fragment& fragment : fragments) AppendTo(stream, fragment, UINT32_MAX);
        return stream;
    }

    void Check(std::size_t frame) const {
        if (frame < count) return;
        Fail(ErrorKind::WrongArgument,
             "no frame " + std::to_string(frame + 1) + ", there are " + std::to_string(count));
    }

    // The odd length that an even fragment was made of, as the Extended Offset Table Lengths tell it.
    void TrimAsTold(std::size_t frame, Bytes& stream) {
        const FrameIndex::Bytes lengths = Loaded(read.dataSet->GetVR(0x7FE0, 0x0002));
        if (lengths.size() != count * sizeof(std::uint64_t)) return;
        const auto told = platform::LoadLittle<std::uint64_t>(lengths.data() + frame * sizeof(std::uint64_t));
        if (told + 1 == stream.size()) stream.pop_back();
    }

    Bytes ReadNative(std::size_t frame) {
        const std::uint64_t begin = frame * frameBits;
        const std::uint64_t first = begin / 8 / kAligned * kAligned;
        Bytes bytes(static_cast<std::size_t>((begin + frameBits + 7) / 8 - first));
        if (IsLeft(*pixels)) {
            left.Read(*pixels, static_cast<std::uint32_t>(first), bytes);
        } else {
            std::copy_n(pixels->m_pData + first, bytes.size(), bytes.begin());
        }
        bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(begin / 8 - first));
        if (const unsigned shift = begin % 8; shift > 0) {
            for (std::size_t i = 0; i < bytes.size(); ++i) {
                const unsigned above = i + 1 < bytes.size() ? bytes[i + 1] : 0U;
                bytes[i] = static_cast<unsigned char>(bytes[i] >> shift | above << (8 - shift));
            }
        }
        bytes.resize(static_cast<std::size_t>((frameBits + 7) / 8));
        if (frameBits % 8 > 0) bytes.back() &= static_cast<unsigned char>((1U << (frameBits % 8)) - 1);
        return bytes;
    }

    std::unique_ptr<VR> PixelsOf(std::size_t frame) {
        auto made = std::make_unique<VR>(pixels->GetTag(), 0, 0);
        made->m_TypeCode = pixels->m_TypeCode;
        if (begins.empty()) {
            const Bytes bytes = ReadNative(frame);
            if (made->AllocateValue(static_cast<std::uint32_t>(bytes.size())) == nullptr) throw std::bad_alloc();
            std::copy(bytes.begin(), bytes.end(), made->m_pData);
            return made;
        }
        bool done = AppendFragment(*made, nullptr, 0) != 0;
        for (std::uint32_t i = begins[frame]; i < begins[frame + 1]; ++i) {
            Bytes bytes;
            AppendTo(bytes, items[i], UINT32_MAX);
            done = done && AppendFragment(*made, bytes.data(), static_cast<std::uint32_t>(bytes.size())) != 0;
        }
        if (!done) throw std::bad_alloc();
        return made;
    }

    // All but the pixels.
    std::unique_ptr<DICOMDataObject> HeaderOf(std::size_t frame) const {
        auto header = std::make_unique<DICOMDataObject>();
        const DICOMObject& whole = *read.dataSet;
        for (const VR* element = whole.GetFirst(); element != nullptr; element = whole.GetNext(element)) {
            if (!IsOfAllFrames(*element)) PushInto(*header, std::unique_ptr<VR>(element->Clone(true)));
        }
        if (FindElement(whole, tags::NumberOfFrames) != nullptr) PutText(*header, tags::NumberOfFrames, "1");
        const VR* const groups = FindElement(whole, tags::PerFrameFunctionalGroupsSequence);
        if (groups != nullptr && frame < groups->GetItemCount()) {
            auto own = std::make_unique<VR>(groups->GetTag(), 0, 0);
            own->m_TypeCode = TypeCode("SQ");
            std::unique_ptr<DICOMObject> item(groups->GetItem(static_cast<std::uint32_t>(frame))->Clone(true));
            if (own->AddItem(item.get()) == 0) throw std::bad_alloc();
            item.release();
            PushInto(*header, std::move(own));
        }
        return header;
    }

    std::string path;
    Watch watch;
    DataSetFile read;
    std::vector<Finding> findings;
    VR* pixels = nullptr;
    std::uint64_t count = 0;
    std::uint64_t frameBits = 0;        // of native pixels
    std::vector<Fragment> items;        // of compressed ones: all behind the first item
    std::vector<std::uint32_t> begins;  // of compressed ones: see FrameIndex
    LeftValueReader left;
    CodecManager codecs;
};

FrameReader::FrameReader(const std::string& path, const FrameOptions& options)
    : m_pState(std::make_unique<State>(path, options)) {}

FrameReader::~FrameReader() = default;
FrameReader::FrameReader(FrameReader&& other) noexcept = default;
FrameReader& FrameReader::operator=(FrameReader&& other) noexcept = default;

std::size_t FrameReader::GetCount() const {
    return static_cast<std::size_t>(m_pState->count);
}

const std::vector<Finding>& FrameReader::GetFindings() const {
    return m_pState->findings;
}

std::vector<unsigned char> FrameReader::ReadStored(std::size_t frame) const {
    State& state = *m_pState;
    state.Check(frame);
    if (state.begins.empty()) return state.ReadNative(frame);
    Bytes stream = state.StreamOf(frame);
    state.TrimAsTold(frame, stream);
    return stream;
}

DataSet FrameReader::Read(std::size_t frame) const {
    State& state = *m_pState;
    state.Check(frame);
    DataSetFile one;
    one.left = state.read.left;
    one.dataSet = state.HeaderOf(frame);
    PushInto(*one.dataSet, state.PixelsOf(frame));
    const std::string& syntax = state.read.transferSyntax;
    if (HasEncapsulatedPixels(*one.dataSet)) {
        const bool canDecode = CodecManager::CanDecode(syntax);
        if (!canDecode) state.Fail(ErrorKind::Unsupported, "no codec for " + DescribeSyntax(syntax));
        state.left.LoadAll(*one.dataSet);
        if (state.codecs.Decode(one.dataSet.get()) == 0) {
            state.watch.StopIfAsked();
            state.Fail(ErrorKind::Damaged, "frame " + std::to_string(frame + 1) + ": cannot decode " +
                                               DescribeSyntax(syntax) + ": " + state.codecs.GetError());
        }
    }
    return DataSetParts::Join(one);
}

}  // namespace korvane
