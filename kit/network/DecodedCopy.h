// An uncompressed copy of a file, for a service that does not take the compression.
#pragma once

#include "../core/TemporaryFolder.h"
#include "../core/Watch.h"

#include "Dicom/Lib/network/StorageUser.h"

#include <memory>
#include <string>

namespace korvane {

class SendDecoder;

/// A file in explicit VR little endian, which goes with its object.
class DecodedCopy {
public:
    /// Null for a file that is not compressed, `why` being empty then, and for one that the decoder does not decode. Throws
    /// `Error` when the copy cannot be written, or at a stop.
    static std::shared_ptr<const DecodedCopy> Make(const StorageFile& file, SendDecoder& decoder, const Watch& watch,
                                                   std::string& why);

    const StorageFile& GetFile() const { return m_File; }

private:
    DecodedCopy() : m_Folder("") {}

    TemporaryFolder m_Folder;
    StorageFile m_File;
};

}  // namespace korvane
