#include "DataSet.h"

#include "../core/Error.h"
#include "Convert.h"
#include "DataSetFile.h"
#include "DataSetOutput.h"
#include "ElementText.h"
#include "ElementValue.h"
#include "LeftValues.h"
#include "StreamBuffers.h"

#include "base/Number.h"

#include <cerrno>
#include <new>
#include <utility>

namespace korvane {

namespace {

// A set with the elements of another one; `deep` or on the same bytes, which must then outlive it.
std::unique_ptr<DICOMDataObject> CopyOf(const DICOMObject& dataSet, bool deep) {
    auto copy = std::make_unique<DICOMDataObject>();
    for (const VR* element = dataSet.GetFirst(); element != nullptr; element = dataSet.GetNext(element)) {
        std::unique_ptr<VR> cloned(element->Clone(deep));
        if (copy->Push(cloned.get()) == 0) throw std::bad_alloc();
        cloned.release();
    }
    if (!deep) CarryLeftValues(dataSet, *copy);
    return copy;
}

std::string_view CharacterSetAt(const DICOMObject& dataSet, std::string_view outer) {
    const VR* const own = FindElement(dataSet, tags::SpecificCharacterSet);
    return own != nullptr ? own->GetText() : outer;
}

ReadReport ReportOf(DataSetFile& file, const std::string& name = {}) {
    if (std::optional<Finding> undecoded = FindUndecodedTexts(*file.dataSet)) {
        if (!name.empty()) {
            undecoded->files = {name};
            undecoded->text.insert(0, name + ": ");
        }
        file.findings.push_back(std::move(*undecoded));
    }
    return {file.transferSyntax, file.complete, file.hasPreamble, std::move(file.findings)};
}

int ParseOptionOf(const ReadOptions& options) {
    return options.pixels ? kParseAll : kStopBeforePixelData;
}

}  // namespace

DataSet::DataSet() : DataSet(std::make_unique<DICOMDataObject>()) {}

DataSet::DataSet(std::unique_ptr<DICOMDataObject> dataSet, std::shared_ptr<LeftValues> left)
    : DataSetView(dataSet.get(), {}), m_pLeft(std::move(left)), m_pOwned(std::move(dataSet)) {}

DataSet::~DataSet() = default;

DataSet::DataSet(DataSet&& other) noexcept : DataSet() {
    *this = std::move(other);
}

DataSet& DataSet::operator=(DataSet&& other) noexcept {
    if (this == &other) return *this;
    m_pOwned = std::exchange(other.m_pOwned, std::make_unique<DICOMDataObject>());
    m_pLeft = std::exchange(other.m_pLeft, nullptr);
    m_pDataSet = m_pOwned.get();
    other.m_pDataSet = other.m_pOwned.get();
    m_Report = std::exchange(other.m_Report, {});
    return *this;
}

DataSet DataSetParts::Join(DataSetFile& file) {
    return DataSet(std::move(file.dataSet), file.left);
}

std::unique_ptr<DICOMDataObject> DataSetParts::Take(DataSet& set) {
    return std::move(set.m_pOwned);
}

DataSet DataSet::Read(const std::string& path, const ReadOptions& options) {
    DataSetFile file =
        ReadDataSetFile(path, ParseOptionOf(options), options.watcher, options.leniency, options.leaveLarger);
    if (file.dataSet == nullptr) throw Error(ErrorKind::NotDicom, path + ": not a DICOM file").InFile(path);
    ReadReport report = ReportOf(file, path);
    DataSet set = DataSetParts::Join(file);
    set.m_Report = std::move(report);
    return set;
}

DataSet DataSet::Read(std::istream& stream, const ReadOptions& options) {
    StreamInputBuffer buffer(stream);
    DataSetFile file = ReadDataSet(buffer, ParseOptionOf(options));
    if (stream.bad()) throw Error(ErrorKind::Disk, "cannot read the stream");
    if (file.dataSet == nullptr) throw Error(ErrorKind::NotDicom, "the stream is not DICOM");
    ReadReport report = ReportOf(file);
    DataSet set(std::move(file.dataSet));
    set.m_Report = std::move(report);
    return set;
}

DataSet DataSet::Parse(std::span<const unsigned char> bytes, const ReadOptions& options) {
    DataSetFile file = ReadDataSet(bytes, ParseOptionOf(options), options.leniency);
    if (file.dataSet == nullptr) throw Error(ErrorKind::NotDicom, "the bytes are not DICOM");
    ReadReport report = ReportOf(file);
    DataSet set(std::move(file.dataSet));
    set.m_Report = std::move(report);
    return set;
}

DataSet DataSet::FromToolkit(std::unique_ptr<DICOMDataObject> dataSet) {
    if (dataSet != nullptr) ForgetLeftValues(*dataSet);
    return DataSet(dataSet != nullptr ? std::move(dataSet) : std::make_unique<DICOMDataObject>());
}

void DataSet::LoadValues(Watcher* watcher) {
    if (m_pLeft == nullptr) return;
    LeftValueReader(watcher).LoadAll(*m_pOwned);
    m_pLeft.reset();
}

// Whoever works on the toolkit's object knows nothing of values that are elsewhere.
DICOMDataObject& DataSet::Toolkit() {
    LoadValues();
    return *m_pOwned;
}

const DICOMDataObject& DataSet::Toolkit() const {
    if (m_pLeft != nullptr) LeftValueReader().LoadAll(*m_pOwned);
    return *m_pOwned;
}

std::unique_ptr<DICOMDataObject> DataSet::ReleaseToolkit() {
    LoadValues();
    auto released = std::exchange(m_pOwned, std::make_unique<DICOMDataObject>());
    m_pDataSet = m_pOwned.get();
    return released;
}

DataSet DataSet::Clone() const {
    DataSet copy(CopyOf(*m_pOwned, true), m_pLeft);
    copy.m_Report = m_Report;
    return copy;
}

// The data set or item that holds the path's last element, made on the way where only that item is missing.
DICOMObject& DataSet::Holder(const ElementPath& path) {
    DICOMObject* holder = m_pOwned.get();
    const auto& steps = path.GetSteps();
    for (std::size_t i = 0; i + 1 < steps.size(); ++i) {
        const Tag tag = steps[i].tag;
        VR* sequence = FindElement(*holder, tag);
        if (sequence == nullptr) {
            auto made = std::make_unique<VR>(GroupOf(tag), ElementOf(tag), 0, 0);
            made->m_TypeCode = PublicDictionary().LookupTypeCode(GroupOf(tag), ElementOf(tag));
            sequence = made.get();
            if (made->m_TypeCode == TypeCode("SQ") && holder->Push(made.get()) != 0) made.release();
        }
        if (sequence->m_TypeCode != TypeCode("SQ") || steps[i].item > sequence->GetItemCount()) {
            throw Error(ErrorKind::WrongArgument, path.GetText() + ": there is no such item");
        }
        if (steps[i].item == sequence->GetItemCount()) {
            auto item = std::make_unique<DICOMDataObject>();
            if (sequence->AddItem(item.get()) == 0) throw std::bad_alloc();
            item.release();
        }
        holder = sequence->GetItem(static_cast<std::uint32_t>(steps[i].item));
    }
    return *holder;
}

void DataSet::AddItem(const ElementPath& path) {
    std::string item = path.GetText() + '[' + std::to_string(Items(path).size()) + "].00080005";
    Holder(ElementPath(item));
}

void DataSet::Set(const ElementPath& path, std::string_view text) {
    SetText(path, text, true);
}

void DataSet::SetUnchecked(const ElementPath& path, std::string_view text) {
    SetText(path, text, false);
}

void DataSet::SetText(const ElementPath& path, std::string_view text, bool checked) {
    DICOMObject& holder = Holder(path);
    std::string set(CharacterSetAt(*m_pOwned, {}));
    const DICOMObject* at = m_pOwned.get();
    for (const ElementPath::Step& step : path.GetSteps()) {
        set = CharacterSetAt(*at, set);
        const VR* const element = FindElement(*at, step.tag);
        if (element == nullptr || step.item >= element->GetItemCount()) break;
        at = element->GetItem(static_cast<std::uint32_t>(step.item));
    }
    const std::uint16_t type = TypeForValue(*m_pOwned, holder, path);
    const std::string bytes = EncodeValue(path, type, text, TextDecoder(set), checked);
    SetBytes(path, {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()},
             std::string{static_cast<char>(type >> 8), static_cast<char>(type & 0xFF)});
}

void DataSet::Set(const ElementPath& path, std::span<const double> values) {
    constexpr std::size_t kLongestDecimal = 16;  // PS3.5 6.2, DS
    std::string text;
    for (const double value : values) {
        std::string number = platform::FormatReal(value);
        if (number.size() > kLongestDecimal && TypeForValue(*m_pOwned, Holder(path), path) == TypeCode("DS")) {
            char shorter[40];
            for (int digits = 15; number.size() > kLongestDecimal && digits > 8; --digits) {
                std::snprintf(shorter, sizeof shorter, "%.*g", digits, value);
                number = shorter;
            }
        }
        text += (text.empty() ? "" : "\\") + number;
    }
    Set(path, std::string_view(text));
}

void DataSet::SetBytes(const ElementPath& path, std::span<const unsigned char> bytes, std::string_view type) {
    DICOMObject& holder = Holder(path);
    std::uint16_t code = 0;
    if (type.size() == 2) PackTypeCode(type[0], type[1], code);
    if (code == 0) code = TypeForValue(*m_pOwned, holder, path);
    if (bytes.size() >= 0xFFFFFFFEU) throw Error(ErrorKind::WrongArgument, path.GetText() + ": too long a value");
    const Tag tag = path.GetTag();
    if (ReplaceValue(holder, tag, code, bytes.data(), static_cast<std::uint32_t>(bytes.size())) == 0) {
        throw std::bad_alloc();
    }
}

bool DataSet::Delete(const ElementPath& path) {
    if (!Has(path)) return false;
    const Tag tag = path.GetTag();
    return Holder(path).Take(tag) != nullptr;
}

// What is written: elements on the bytes of this set, in the syntax asked for, which `syntax` gets.
std::unique_ptr<DICOMDataObject> DataSet::Prepared(const SaveOptions& options, std::string& syntax) const {
    auto copy = CopyOf(*m_pOwned, false);
    const bool encapsulated = IsEncapsulated(FindElement(*copy, tags::PixelData));
    const std::string present = TrimmedUid(Text(tags::TransferSyntaxUID));
    const bool stays = encapsulated || IsNativeTransferSyntax(present);
    syntax =
        options.syntax.empty() ? (stays ? present : std::string(kExplicitLittleEndianUid)) : SyntaxUid(options.syntax);
    CodecManager codecs;
    codecs.SetStopQuestion(Watch(options.watcher).GetStopQuestion());
    if (!(encapsulated && syntax == present)) {
        const bool native = IsNativeTransferSyntax(syntax);
        if (!native || HasEncapsulatedPixels(*copy)) LeftValueReader(options.watcher).LoadAll(*copy);
        const int done = native ? codecs.Decode(copy.get()) : codecs.Convert(copy.get(), syntax);
        Watch(options.watcher).StopIfAsked();
        if (done == 0) {
            throw Error(ErrorKind::Unsupported,
                        "cannot be written as " + DescribeSyntax(syntax) + ": " + codecs.GetError());
        }
    }
    CompleteTypes(*copy, &PublicDictionary());
    return copy;
}

void DataSet::Save(const std::string& path, const SaveOptions& options) const {
    std::string syntax;
    const auto copy = Prepared(options, syntax);
    CodecManager codecs;
    SaveDataSet(path, *copy, syntax, codecs, options.watcher);  // no frame is left to be written
}

void DataSet::Save(std::ostream& stream, const SaveOptions& options) const {
    std::string syntax;
    const auto copy = Prepared(options, syntax);
    CodecManager codecs;
    StreamOutputBuffer buffer(stream);
    if (!WriteDataSet(buffer, *copy, syntax, codecs, options.watcher))
        throw Error(ErrorKind::Disk, "cannot write the stream");
}

}  // namespace korvane
