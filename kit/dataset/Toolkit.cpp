#include "Toolkit.h"

#include "../core/Error.h"
#include "../core/Paths.h"

#include "base/Number.h"
#include "platform/ReplacingFile.h"

#include <cerrno>
#include <cmath>
#include <memory>
#include <new>
#include <vector>

namespace korvane {

namespace {

/// The codecs take a dictionary that they may change; none of ours does.
DcmDictionary& SharedDictionary() {
    static DcmDictionary dictionary;
    static const bool built = [] {
        std::size_t count = 0;
        const DcmDictionaryRow* const rows = PublicDictionaryRows(count);
        return dictionary.Build(rows, count) != 0;
    }();
    if (!built) throw std::bad_alloc();
    return dictionary;
}

bool IsFill(char character) {
    return character == ' ' || character == '\0' || character == '\t' || character == '\n' || character == '\r';
}

}  // namespace

const DcmDictionary& PublicDictionary() {
    return SharedDictionary();
}

DictionaryCodec::DictionaryCodec() : TransferSyntaxCodec(&SharedDictionary()) {}

VR* FindElement(const DICOMObject& dataSet, Tag tag) {
    return dataSet.GetVR(tag);
}

std::string FindText(const DICOMObject& dataSet, Tag tag) {
    const std::string whole = TextOf(dataSet, tag);
    std::string_view text = whole;
    while (!text.empty() && IsFill(text.back())) text.remove_suffix(1);
    while (!text.empty() && IsFill(text.front())) text.remove_prefix(1);
    return std::string(text);
}

int FindInteger(const DICOMObject& dataSet, Tag tag, int otherwise) {
    const VR* const element = FindElement(dataSet, tag);
    if (element == nullptr || element->GetText().empty()) return otherwise;
    // Some writers call UN what they might have named.
    const bool unnamed = element->m_TypeCode == TypeCode("UN") || element->m_TypeCode == 0;
    const std::uint16_t type = unnamed ? PublicDictionary().LookupTypeCode(tag) : element->m_TypeCode;
    if (GetValueKind(type) == ValueKind::Text) return platform::ParseInteger(FindText(dataSet, tag));
    return element->m_Length == 2 ? dataSet.GetUINT16(tag) : otherwise;
}

bool FindReals(const DICOMObject& dataSet, Tag tag, double* values, std::size_t count) {
    std::vector<double> read(count);
    const std::string text = FindText(dataSet, tag);
    if (text.empty() || platform::ScanReals(text, read.data(), count) != count) return false;
    for (const double value : read) {
        if (!std::isfinite(value)) return false;
    }
    std::copy(read.begin(), read.end(), values);
    return true;
}

DICOMObject* FindItem(const DICOMObject& dataSet, Tag tag) {
    const VR* const element = FindElement(dataSet, tag);
    return element != nullptr && element->GetItemCount() > 0 ? element->GetItem(0) : nullptr;
}

void PutText(DICOMObject& dataSet, Tag tag, std::string_view text) {
    const std::uint16_t type = PublicDictionary().LookupTypeCode(tag);
    if (ReplaceText(dataSet, tag, type, text) == 0) throw std::bad_alloc();
}

void PutReals(DICOMObject& dataSet, Tag tag, const double* values, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += (i == 0 ? "" : "\\") + platform::FormatReal(values[i]);
    PutText(dataSet, tag, text);
}

void PutNumber(DICOMObject& dataSet, Tag tag, unsigned value) {
    const unsigned char bytes[] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8)};
    if (ReplaceValue(dataSet, tag, TypeCode("US"), bytes, sizeof bytes) == 0) {
        throw std::bad_alloc();
    }
}

void DropElement(DICOMObject& dataSet, Tag tag) {
    dataSet.Take(tag);
}

void SaveFile(const std::string& path, DICOMDataObject& dataSet) {
    DictionaryCodec codec;
    errno = 0;
    platform::ReplacingFile file;
    const bool saved =
        file.Reserve(path) && SaveDICOMFile(file.GetUnfinished().c_str(), 3, &dataSet, &codec) != 0 && file.Commit();
    if (!saved) throw Error(ErrorKind::Disk, "cannot write " + path + ": " + SystemText(errno)).InFile(path);
}

}  // namespace korvane
