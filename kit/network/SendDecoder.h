// Decodes files for peers that do not take their compression.
#pragma once

#include "../core/Watch.h"
#include "../dataset/Toolkit.h"

#include "Dicom/Lib/network/StorageUser.h"

#include <memory>
#include <string>

namespace korvane {

/// Decodes by the codec modules, and inflates. For one thread.
class SendDecoder : public StorageDecoder {
public:
    /// `lossy`: whether data that was compressed with loss is decoded too.
    SendDecoder(bool lossy, const Watch& watch);

    bool CanDecode(const std::string& transferSyntax) const override;
    std::unique_ptr<DICOMDataObject> Read(const StorageFile& file, std::string& error) override;

private:
    bool m_bLossy;
    Watch m_Watch;
    CodecManager m_Codecs;
};

}  // namespace korvane
