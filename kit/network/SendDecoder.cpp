#include "SendDecoder.h"

#include "../core/Error.h"
#include "../dataset/DataSetFile.h"

#include <utility>

namespace korvane {

SendDecoder::SendDecoder(bool lossy, const Watch& watch) : m_bLossy(lossy), m_Watch(watch) {
    m_Codecs.SetStopQuestion(watch.GetStopQuestion());
}

bool SendDecoder::CanDecode(const std::string& transferSyntax) const {
    return IsDeflatedTransferSyntax(transferSyntax) ||
           (!IsNativeTransferSyntax(transferSyntax) && CodecManager::CanDecode(transferSyntax));
}

std::unique_ptr<DICOMDataObject> SendDecoder::Read(const StorageFile& file, std::string& error) {
    DataSetFile read;
    try {
        read = ReadDataSetFile(file.path, kParseAll, m_Watch);
    } catch (const Error& failure) {
        error = failure.what();
        return nullptr;
    }
    const std::string from = "the peer does not accept " + DescribeSyntax(file.transferSyntax);
    if (read.dataSet == nullptr || !read.complete) {
        error = from + ", and the data set is damaged";
    } else if (m_Codecs.Decode(read.dataSet.get()) == 0) {
        error = from + ", and it cannot be decoded: " + m_Codecs.GetError();
    } else if (m_Codecs.WasLossy() && !m_bLossy) {
        error = from + "; decoded, what was compressed with loss would be sent as if it had not been";
    } else {
        read.dataSet->Take(tags::DataSetTrailingPadding);
        return std::move(read.dataSet);
    }
    return nullptr;
}

}  // namespace korvane
