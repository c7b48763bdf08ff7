// The DICOM toolkit as the Kit uses it: with the full public dictionary.
#pragma once

#include "../../Dicom/Lib/dataset/DICOMObject.h"
#include "../../Dicom/Lib/dataset/Encapsulation.h"
#include "../../Dicom/Lib/dataset/ReplaceValue.h"
#include "../../Dicom/Lib/dataset/ValueText.h"
#include "../../Dicom/Lib/dictionary/PublicDictionary.h"
#include "../../Dicom/Lib/dictionary/Tags.generated.h"
#include "../../Dicom/Lib/dictionary/TypeCompletion.h"
#include "../../Dicom/Lib/pixels/CodecManager.h"
#include "../../Dicom/Lib/storage/DICOMFile.h"
#include "../../Dicom/Lib/stream/FileBuffer.h"
#include "../../Dicom/Lib/stream/MemoryBuffer.h"
#include "../../Dicom/Lib/syntax/ElementHeader.h"
#include "../../Dicom/Lib/syntax/TransferSyntaxCodec.h"
#include "../../Dicom/Lib/syntax/TransferSyntaxTable.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace korvane {

using tags::ElementOf;
using tags::GroupOf;
using tags::MakeTag;
using tags::Tag;

/// The class of directories (PS3.10 8.6), which have no class of their own in the data set.
constexpr std::string_view kMediaDirectoryClassUid = "1.2.840.10008.1.3.10";

/// The public dictionary, built once.
const DcmDictionary& PublicDictionary();

/// A codec that has it.
class DictionaryCodec : public TransferSyntaxCodec {
public:
    DictionaryCodec();
};

/// A text without blanks, zero bytes, tabs and line ends at both ends.
std::string_view WithoutBlanks(std::string_view text);

/// The element; null when absent.
VR* FindElement(const DICOMObject& dataSet, Tag tag);
/// `TextOf` without blanks in front either, and without tabs and line ends at both ends.
std::string FindText(const DICOMObject& dataSet, Tag tag);
int FindInteger(const DICOMObject& dataSet, Tag tag, int otherwise);
/// Exactly `count` reals separated by backslashes, with blanks around each; false, nothing changed, when there are fewer or
/// one is no finite number.
bool FindReals(const DICOMObject& dataSet, Tag tag, double* values, std::size_t count);
/// The first item of a sequence; null without one.
DICOMObject* FindItem(const DICOMObject& dataSet, Tag tag);

/// Set or replace an element; its type comes from the dictionary. Throw `std::bad_alloc`.
void PutText(DICOMObject& dataSet, Tag tag, std::string_view text);
void PutReals(DICOMObject& dataSet, Tag tag, const double* values, std::size_t count);
void PutNumber(DICOMObject& dataSet, Tag tag, unsigned value);  ///< US
/// Puts an element in; null throws as well.
void PushInto(DICOMObject& dataSet, std::unique_ptr<VR> element);
/// Takes an element out and destroys it.
void DropElement(DICOMObject& dataSet, Tag tag);

/// Writes a Part 10 file, explicit little endian; the data set is empty afterwards. Throws `Error`; the file that
/// could not be finished is then removed.
void SaveFile(const std::string& path, DICOMDataObject& dataSet);

}  // namespace korvane
