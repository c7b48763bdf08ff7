#include "DataSetOutput.h"

namespace {

constexpr std::uint16_t kNegativeKeys = 0x8000;  // groups from here on come first in the library's order
constexpr std::string_view kMediaDirectoryClass = "1.2.840.10008.1.3.10";

/// Writes elements in ascending order of their unsigned tags (PS3.5 7.1), on every level.
class StandardOrderCodec : public DictionaryCodec {
public:
    int ImplicitEncode(Buffer& buffer, DICOMObject* dataSet, int depth) override {
        DICOMDataObject last;
        TakeHighGroups(*dataSet, last);
        return DictionaryCodec::ImplicitEncode(buffer, dataSet, depth) &
               DictionaryCodec::ImplicitEncode(buffer, &last, depth);
    }

    int ExplicitEncode(Buffer& buffer, DICOMObject* dataSet, int depth) override {
        DICOMDataObject last;
        TakeHighGroups(*dataSet, last);
        return DictionaryCodec::ExplicitEncode(buffer, dataSet, depth) &
               DictionaryCodec::ExplicitEncode(buffer, &last, depth);
    }

private:
    static void TakeHighGroups(DICOMObject& dataSet, DICOMObject& into) {
        while (dataSet.GetFirst() != nullptr && dataSet.GetFirst()->m_Group >= kNegativeKeys) {
            into.Push(dataSet.Take(dataSet.GetFirst()->m_Group, dataSet.GetFirst()->m_Element).release());
        }
    }
};

bool WriteParts(Buffer& buffer, DICOMDataObject& dataSet, std::string_view syntax) {
    static constexpr char kMarker[] = {'D', 'I', 'C', 'M'};
    StandardOrderCodec codec;
    if (codec.PrepareMetaInformation(&dataSet, 3) == 0) return false;
    if (IsNativeTransferSyntax(syntax)) PutText(dataSet, MakeTag(0x0002, 0x0010), syntax);
    return buffer.WriteZeros(128) && buffer.Write(kMarker, sizeof kMarker) &&
           codec.EncodeMetaInformation(buffer, dataSet) != 0 &&
           codec.EncodeStream(FindTransferSyntax(syntax, kExplicitLittleEndian), buffer, &dataSet) != 0;
}

}  // namespace

bool IsMediaDirectory(const DICOMObject& dataSet) {
    return FindText(dataSet, MakeTag(0x0002, 0x0002)) == kMediaDirectoryClass ||
           FindElement(dataSet, MakeTag(0x0004, 0x1220)) != nullptr;
}

bool WriteDataSet(Buffer& buffer, DICOMDataObject& dataSet, std::string_view syntax) {
    return WriteParts(buffer, dataSet, syntax) && buffer.Flush();
}
