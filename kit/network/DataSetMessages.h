// Data sets behind commands: encoded and read whole, unlike the instances of storage.
#pragma once

#include "../dataset/DataSet.h"

#include "Dicom/Lib/dataset/DICOMObject.h"
#include "Dicom/Lib/network/DcmService.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace korvane {

/// Sends the data set that belongs to the command sent last, in the syntax of the context. False when the association
/// has ended.
bool SendDataSet(DcmService& service, const AcceptedContext& context, const DataSet& dataSet);

/// What came behind a command.
struct ReceivedDataSet {
    DcmService::Event event = DcmService::Event::Message;  ///< else how the association ended
    std::unique_ptr<DICOMDataObject> dataSet;              ///< null: damaged, or too large
    bool isTooLarge = false;  ///< beyond 16 MB: its rest was not read, and the association can only be aborted
    std::size_t bytes = 0;
};

/// The data set that a peer sent in a transfer syntax; null where the bytes are none.
std::unique_ptr<DICOMDataObject> ParseDataSet(const std::string& transferSyntax, std::span<const unsigned char> bytes);

/// Reads it.
ReceivedDataSet ReceiveDataSet(DcmService& service, std::uint8_t context);

}  // namespace korvane
