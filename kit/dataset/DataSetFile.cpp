#include "DataSetFile.h"

#include "../core/Error.h"
#include "InflateBuffer.h"
#include "KnownTypes.h"
#include "LeftValues.h"
#include "TolerantParser.h"

#include "Dicom/Lib/syntax/ValueLeaver.h"
#include "base/Bytes.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace korvane {

namespace {

constexpr std::uint32_t kUndefinedLength = 0xFFFFFFFFU;

// Notes what stands where Pixel Data begins, and leaves large values in the file.
class NotingCodec : public DictionaryCodec, public ValueLeaver {
public:
    explicit NotingCodec(DataSetFile& file) : m_File(file) {}

    bool LeaveValue(Buffer& buffer, VR& element, std::uint32_t length) override {
        return m_File.left != nullptr && m_File.left->Leave(buffer, element, length);
    }

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

// Takes no functional groups but some.
class WithSomeGroups : public DICOMDataObject {
public:
    explicit WithSomeGroups(const KeptGroups& kept) : m_Kept(kept) {}

    int PushItemToLast(DICOMObject* item) override {
        const VR* const sequence = GetLastPushed();
        if (sequence != m_pSequence) m_nItems = 0;
        m_pSequence = sequence;
        if (sequence == nullptr || m_Kept.Keeps(*sequence, m_nItems++)) return DICOMDataObject::PushItemToLast(item);
        delete item;
        return 1;
    }

private:
    KeptGroups m_Kept;
    const VR* m_pSequence = nullptr;  // whose items come
    std::uint32_t m_nItems = 0;       // of it, so far
};

enum class Beginning { NotDicom, Preamble, Marker, Bare };

// A data set without a preamble is known by its first group; in big endian, by the letters of its first type too.
Beginning LookAtBeginning(Buffer& buffer) {
    const unsigned char* head = buffer.Peek(132);
    if (head != nullptr && std::memcmp(head + 128, "DICM", 4) == 0) return Beginning::Preamble;
    head = buffer.Peek(8);
    if (head == nullptr) return Beginning::NotDicom;
    const bool begins = (head[4] == 2 || head[4] == 8) && head[5] == 0;
    if (begins && std::memcmp(head, "DICM", 4) == 0) return Beginning::Marker;
    const auto little = platform::LoadLittle<std::uint16_t>(head);
    if (little == 0x0002 || little == 0x0008) return Beginning::Bare;
    const bool typed = std::isupper(head[4]) != 0 && std::isupper(head[5]) != 0;
    return platform::LoadBig<std::uint16_t>(head) == 0x0008 && typed ? Beginning::Bare : Beginning::NotDicom;
}

// The syntax that the next element looks like; `otherwise` where nothing stands there.
int LookAtEncoding(Buffer& buffer, int otherwise) {
    const unsigned char* const head = buffer.Peek(8);
    if (head == nullptr) return otherwise;
    if (!IsKnownType(head[4], head[5])) return kImplicitLittleEndian;
    // The first group of a data set is a small number.
    return head[0] == 0 && head[1] != 0 ? kExplicitBigEndian : kExplicitLittleEndian;
}

const char* NameOfEncoding(int syntax) {
    if (syntax == kImplicitLittleEndian) return "implicit VR little endian";
    return syntax == kExplicitBigEndian ? "explicit VR big endian" : "explicit VR little endian";
}

// Reads a stream in steps, by the toolkit or, a second time, by the tolerant parser.
class Reading {
public:
    Reading(DataSetFile& file, int option, const Leniency& leniency, bool second, const KeptGroups& groups)
        : m_File(file), m_iOption(option), m_Leniency(leniency), m_bSecond(second), m_Groups(groups) {}

    // False when the stream is not DICOM.
    bool Read(Buffer& buffer) {
        const Beginning beginning = LookAtBeginning(buffer);
        if (beginning == Beginning::NotDicom) return false;
        m_File.hasPreamble = SkipPreamble(buffer);
        if (beginning == Beginning::Marker) buffer.Skip(4);
        m_File.dataSet = m_Groups.AreAll() || m_bSecond ? std::make_unique<DICOMDataObject>()
                                                        : std::make_unique<WithSomeGroups>(m_Groups);
        const bool hasMeta = ReadMeta(buffer);
        if (!m_File.hasPreamble || !hasMeta) {
            Note(FindingKind::NoMeta, m_File.hasPreamble ? "no meta information (group 0002)" : "no preamble");
        }
        m_File.transferSyntax = TrimmedUid(ValueOf(tags::TransferSyntaxUID));
        const bool named = !m_File.transferSyntax.empty();
        if (IsDeflatedTransferSyntax(m_File.transferSyntax) && !IsPlain(buffer)) {
            InflateBuffer inflated(buffer);
            ParseInflated(inflated);
            return true;
        }
        const int syntax = ChooseSyntax(buffer);
        if (!named) m_File.transferSyntax = NativeSyntaxUid(syntax);
        ParseAs(syntax, buffer);
        return true;
    }

private:
    std::string_view ValueOf(Tag tag) const {
        const VR* const element = FindElement(*m_File.dataSet, tag);
        return element != nullptr ? element->GetText() : std::string_view();
    }

    bool ReadMeta(Buffer& buffer) {
        const unsigned char* const head = buffer.Peek(8);
        if (head == nullptr || head[0] != 2 || head[1] != 0) return false;
        DictionaryCodec codec;
        m_bMetaFaulty = codec.ParseMetaInformation(buffer, m_File.dataSet.get()) == 0;
        if (codec.WasMemoryShort()) throw std::bad_alloc();
        return true;
    }

    // Whether data that is named deflated is not.
    bool IsPlain(Buffer& buffer) {
        const unsigned char* const head = buffer.Peek(8);
        const bool plain =
            head != nullptr && head[0] == 8 && head[1] == 0 && head[3] == 0 && IsKnownType(head[4], head[5]);
        if (plain) Note(FindingKind::OtherEncoding, "the data is not deflated, though its transfer syntax says so");
        return plain && m_Leniency.otherEncoding;
    }

    int ChooseSyntax(Buffer& buffer) {
        constexpr int kUnknownSyntax = -1;
        const std::string& uid = m_File.transferSyntax;
        const int named = FindTransferSyntax(uid, kUnknownSyntax);
        const int looks = LookAtEncoding(buffer, named == kUnknownSyntax ? kExplicitLittleEndian : named);
        if (uid.empty() || IsDeflatedTransferSyntax(uid)) return looks;
        // Syntaxes of compressed pixels are explicit little endian, those too that no codec is there for.
        const int expected = named == kUnknownSyntax ? kExplicitLittleEndian : named;
        const bool known = named != kUnknownSyntax || DescribeSyntax(uid) != uid;
        if (!known) {
            Note(FindingKind::OtherEncoding,
                 "the transfer syntax " + uid + " is not known; read as " + NameOfEncoding(looks));
            return m_Leniency.unknownSyntax ? looks : expected;
        }
        if (expected == looks) return looks;
        Note(FindingKind::OtherEncoding, std::string("the data is in ") + NameOfEncoding(looks) +
                                             ", not as its transfer syntax " + DescribeSyntax(uid) + " says");
        return m_Leniency.otherEncoding ? looks : expected;
    }

    // Where a deflated stream ends is known at its end alone; the tolerant parser must know it at once.
    void ParseInflated(Buffer& inflated) {
        if (!m_bSecond) {
            ParseAs(LookAtEncoding(inflated, kExplicitLittleEndian), inflated);
            return;
        }
        constexpr std::size_t kStep = std::size_t{1} << 20;
        std::vector<unsigned char> bytes;
        for (std::size_t read = 1; read > 0;) {
            const std::size_t before = bytes.size();
            bytes.resize(before + kStep);
            read = inflated.ReadSome(bytes.data() + before, kStep);
            bytes.resize(before + read);
        }
        MemoryInputBuffer whole(bytes.data(), bytes.size());
        ParseAs(LookAtEncoding(whole, kExplicitLittleEndian), whole);
    }

    void ParseAs(int syntax, Buffer& buffer) {
        const bool whole = (m_bSecond ? ParseTolerantly(syntax, buffer) : ParseStrictly(syntax, buffer));
        m_File.complete = whole && !m_bMetaFaulty;
        if (m_Leniency.unnamedTypes) OpenKnownTypes(*m_File.dataSet, syntax == kExplicitBigEndian);
    }

    bool ParseStrictly(int syntax, Buffer& buffer) {
        NotingCodec codec(m_File);
        bool parsed = false;
        // A delimiter on the top level ends a parse, not the file.
        do {
            parsed = codec.ParseStream(syntax, buffer, m_File.dataSet.get(), m_iOption) != 0 && codec.WasWhole();
        } while (parsed && !codec.HasStopped() && buffer.HasData());
        if (codec.WasMemoryShort()) throw std::bad_alloc();
        if (codec.HasStopped()) m_File.encapsulated = codec.GetStoppedLength() == kUndefinedLength;
        m_File.hasPixels = m_File.hasPixels || codec.HasStopped();
        // Letters that are no type were never letters: the parse has lost its way without meeting a fault.
        return parsed && HasSoundTypes(*m_File.dataSet);
    }

    bool ParseTolerantly(int syntax, Buffer& buffer) {
        TolerantParser parser(m_Leniency, m_File.findings, m_File.left.get());
        const bool whole = parser.Parse(syntax, buffer, *m_File.dataSet, m_iOption);
        m_File.hasPixels = parser.HasPixels();
        m_File.encapsulated = m_File.hasPixels && parser.GetPixelLength() == kUndefinedLength;
        m_File.pixelLength = m_File.encapsulated ? 0 : parser.GetPixelLength();
        m_File.pixelsPresent = m_File.encapsulated ? 0 : parser.GetPixelsPresent();
        return whole;
    }

    static bool HasSoundTypes(const DICOMObject& dataSet) {
        for (const VR* element = dataSet.GetFirst(); element != nullptr; element = dataSet.GetNext(element)) {
            const std::uint16_t type = element->m_TypeCode;
            const auto first = static_cast<unsigned char>(type >> 8);
            if (type != 0 && type != TypeCode("OX") && !IsKnownType(first, static_cast<unsigned char>(type & 0xFF)))
                return false;
            if (IsPixelData(*element)) continue;
            for (std::uint32_t i = 0; i < element->GetItemCount(); ++i) {
                if (!HasSoundTypes(*element->GetItem(i))) return false;
            }
        }
        return true;
    }

    void Note(FindingKind kind, const std::string& text) { m_File.findings.push_back({.kind = kind, .text = text}); }

    DataSetFile& m_File;
    int m_iOption;
    Leniency m_Leniency;
    bool m_bSecond;
    KeptGroups m_Groups;
    bool m_bMetaFaulty = false;
};

DataSetFile ReadOnce(Buffer& buffer, int option, const Leniency& leniency, bool second,
                     std::shared_ptr<LeftValues> left = {}, const KeptGroups& groups = KeptGroups::All()) {
    DataSetFile file;
    file.left = std::move(left);
    if (!Reading(file, option, leniency, second, groups).Read(buffer)) return {};
    groups.Trim(*file.dataSet, second);
    if (const VR* const pixels = FindElement(*file.dataSet, tags::PixelData); pixels != nullptr) {
        file.hasPixels = true;
        file.encapsulated = IsEncapsulated(pixels);
    }
    return file;
}

}  // namespace

bool KeptGroups::Keeps(const VR& sequence, std::uint32_t item) const {
    if (sequence.GetTag() == tags::SharedFunctionalGroupsSequence) return m_bShared;
    if (sequence.GetTag() != tags::PerFrameFunctionalGroupsSequence) return true;
    return m_bPerFrame && (m_Frame == kEvery || item == m_Frame);
}

void KeptGroups::Trim(DICOMDataObject& dataSet, bool hasAll) const {
    if (!m_bShared) DropElement(dataSet, tags::SharedFunctionalGroupsSequence);
    if (!m_bPerFrame) DropElement(dataSet, tags::PerFrameFunctionalGroupsSequence);
    const VR* const groups = FindElement(dataSet, tags::PerFrameFunctionalGroupsSequence);
    if (!hasAll || groups == nullptr || m_Frame == kEvery) return;
    auto kept = std::make_unique<VR>(tags::PerFrameFunctionalGroupsSequence, 0, 0);
    kept->m_TypeCode = TypeCode("SQ");
    if (m_Frame < groups->GetItemCount()) {
        std::unique_ptr<DICOMObject> item(groups->GetItem(m_Frame)->Clone(true));
        if (kept->AddItem(item.get()) == 0) throw std::bad_alloc();
        item.release();
    }
    DropElement(dataSet, tags::PerFrameFunctionalGroupsSequence);
    PushInto(dataSet, std::move(kept));
}

DataSetFile ReadDataSet(Buffer& buffer, int option) {
    return ReadOnce(buffer, option, {}, false);
}

DataSetFile ReadDataSet(std::span<const unsigned char> bytes, int option, const Leniency& leniency) {
    MemoryInputBuffer buffer(bytes.data(), bytes.size());
    DataSetFile file = ReadOnce(buffer, option, leniency, false);
    if (file.dataSet == nullptr || file.complete) return file;
    MemoryInputBuffer again(bytes.data(), bytes.size());
    return ReadOnce(again, option, leniency, true);
}

bool LooksLikeDataSet(std::span<const unsigned char> head) {
    MemoryInputBuffer buffer(head.data(), head.size());
    return LookAtBeginning(buffer) != Beginning::NotDicom;
}

namespace {

[[noreturn]] void RefuseUnread(const std::string& path, int error, const Watch& watch) {
    watch.StopIfAsked();
    const bool missing = error == ENOENT || error == ENOTDIR;
    throw Error(missing ? ErrorKind::NotFound : ErrorKind::Disk, "cannot read " + path + ": " + SystemText(error))
        .InFile(path);
}

}  // namespace

DataSetFile ReadDataSetFile(const NamedFile& from, int option, const Watch& watch, const Leniency& leniency,
                            std::uint32_t leaveLarger, const KeptGroups& groups) {
    const std::string& path = from.name;
    DataSetFile file;
    for (const bool second : {false, true}) {
        SeekingBuffer buffer;
        buffer.SetStopQuestion(watch.GetStopQuestion());
        errno = 0;
        if (!buffer.Open(from.place.c_str())) RefuseUnread(path, errno, watch);
        const std::shared_ptr<LeftValues> left = LeftValues::Of(from, leaveLarger, buffer.GetState());
        file = ReadOnce(buffer, option, leniency, second, left, groups);
        if (buffer.HasFailed()) RefuseUnread(path, buffer.GetError(), watch);
        // What has no known end, such as a pipe, cannot be read again.
        if (file.dataSet == nullptr || file.complete || buffer.GetRemaining() == Buffer::kUnknown) break;
    }
    if (file.dataSet != nullptr && file.left != nullptr && !HasLeftValues(*file.dataSet)) file.left.reset();
    for (Finding& finding : file.findings) {
        finding.files = {path};
        finding.text = path + ": " + finding.text;
    }
    return file;
}

std::string DescribeSyntax(const std::string& uid) {
    const TransferSyntaxRow* const row = FindSyntaxRow(uid);
    return row != nullptr && !row->name.empty() ? std::string(row->name) + " (" + uid + ")" : uid;
}

}  // namespace korvane
