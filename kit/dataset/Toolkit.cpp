#include "Toolkit.h"

#include "../core/Error.h"
#include "../core/Paths.h"

#include "base/Number.h"
#include "platform/ReplacingFile.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <new>
#include <vector>

namespace korvane {

namespace {

bool IsFill(char character) {
    return character == ' ' || character == '\0' || character == '\t' || character == '\n' || character == '\r';
}

}  // namespace

std::string_view WithoutBlanks(std::string_view text) {
    while (!text.empty() && IsFill(text.back())) text.remove_suffix(1);
    while (!text.empty() && IsFill(text.front())) text.remove_prefix(1);
    return text;
}

namespace {

// A decimal string, blanks around it allowed, nothing else.
bool ReadReal(std::string_view text, double& value) {
    text = WithoutBlanks(text);
    return text.find_first_not_of("+-.0123456789eE") == text.npos && platform::ScanReals(text, &value, 1) == 1 &&
           std::isfinite(value);
}

}  // namespace

const DcmDictionary& PublicDictionary() {
    return SharedPublicDictionary();
}

DictionaryCodec::DictionaryCodec() : TransferSyntaxCodec(&SharedPublicDictionary()) {}

VR* FindElement(const DICOMObject& dataSet, Tag tag) {
    return dataSet.GetVR(tag);
}

std::string FindText(const DICOMObject& dataSet, Tag tag) {
    const VR* const element = FindElement(dataSet, tag);
    return element != nullptr ? std::string(WithoutBlanks(TextOf(*element))) : std::string();
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
    const std::string text = FindText(dataSet, tag);
    std::vector<double> read(count);
    std::string_view rest = text;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t end = std::min(rest.find('\\'), rest.size());
        if (!ReadReal(rest.substr(0, end), read[i]) || (end == rest.size() && i + 1 < count)) return false;
        rest.remove_prefix(std::min(end + 1, rest.size()));
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

void PushInto(DICOMObject& dataSet, std::unique_ptr<VR> element) {
    if (element == nullptr || dataSet.Push(element.get()) == 0) throw std::bad_alloc();
    element.release();
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
