#include "DecodedCopy.h"

#include "SendDecoder.h"

namespace korvane {

std::shared_ptr<const DecodedCopy> DecodedCopy::Make(const StorageFile& file, SendDecoder& decoder, const Watch& watch,
                                                     std::string& why) {
    why.clear();
    if (!decoder.CanDecode(file.transferSyntax)) return nullptr;
    const auto dataSet = decoder.Read(file, why);
    watch.StopIfAsked();
    if (dataSet == nullptr) return nullptr;
    std::shared_ptr<DecodedCopy> copy(new DecodedCopy);
    const std::string path = copy->m_Folder.NewFile();
    SaveFile(path, *dataSet);
    return copy->m_File.Examine(path, why) != 0 ? copy : nullptr;
}

}  // namespace korvane
