// Command sets of DICOM messages (PS3.7 6.3 and annex E): implicit VR little endian, group 0000.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::string_view kVerificationClass = "1.2.840.10008.1.1";
/// Storage commitment, and its one instance (PS3.4 J.3).
inline constexpr std::string_view kCommitmentClass = "1.2.840.10008.1.20.1";
inline constexpr std::string_view kCommitmentInstance = "1.2.840.10008.1.20.1.1";

/// Values of Command Field (0000,0100). A response has that of its request with `kResponseBit` added (PS3.7 E.1).
enum CommandField : std::uint16_t {
    kStoreRQ = 0x0001,
    kStoreRSP = 0x8001,
    kGetRQ = 0x0010,
    kFindRQ = 0x0020,
    kMoveRQ = 0x0021,
    kEchoRQ = 0x0030,
    kEchoRSP = 0x8030,
    kEventReportRQ = 0x0100,
    kActionRQ = 0x0130,
    kCancelRQ = 0x0FFF,
    kResponseBit = 0x8000
};

/// Status codes (PS3.7 annex C, PS3.4 B.2.3).
enum DimseStatus : std::uint16_t {
    kStatusSuccess = 0x0000,
    kStatusProcessingFailure = 0x0110,
    kStatusNoSuchInstance = 0x0112,
    kStatusInvalidArgument = 0x0115,
    kStatusInvalidInstance = 0x0117,
    kStatusClassInstanceConflict = 0x0119,
    kStatusClassNotSupported = 0x0122,
    kStatusNoSuchAction = 0x0123,
    kStatusNotAuthorized = 0x0124,
    kStatusDuplicateTransaction = 0x0131,
    kStatusUnrecognizedOperation = 0x0211,
    kStatusResourceLimitation = 0x0213,
    kStatusOutOfResources = 0xA700,
    kStatusDestinationUnknown = 0xA801,
    kStatusDataSetMismatch = 0xA900,
    kStatusCannotUnderstand = 0xC000,
    kStatusCancelled = 0xFE00,
    kStatusPending = 0xFF00
};

/// Whether a C-STORE with this status has stored the instance: success, and warnings (Bxxx).
bool IsStored(std::uint16_t status);

/// Whether more responses follow one with this status (FF00, FF01).
bool IsPending(std::uint16_t status);

/// A status in words, with its number: "out of resources (0xA700)".
std::string DimseStatusText(std::uint16_t status);

/// One command. Fields that a command does not have are left at their values here, and not written.
struct DimseCommand {
    static constexpr std::uint16_t kNoDataSet = 0x0101;  ///< `dataSetType` of a command that no data set follows
    static constexpr std::size_t kLargest = 64 * 1024;   ///< bytes; a longer command set is not read

    std::uint16_t field = 0;
    std::uint16_t messageId = 0;  ///< in a response: the number of the request
    std::string sopClass;
    std::string sopInstance;
    std::uint16_t priority = 0;
    std::uint16_t dataSetType = kNoDataSet;
    std::uint16_t status = 0;     ///< responses
    std::string errorComment;     ///< responses; at most 64 characters are written
    std::string moveDestination;  ///< of a C-MOVE request: the AE title that the instances go to
    std::uint16_t typeId = 0;     ///< of N-ACTION and N-EVENT-REPORT requests: which action, which event

    // Sub-operations, of responses to C-GET and C-MOVE; read only.
    std::uint16_t remaining = 0;
    std::uint16_t completed = 0;
    std::uint16_t failed = 0;
    std::uint16_t warned = 0;

    bool IsResponse() const { return (field & kResponseBit) != 0; }
    bool HasDataSet() const { return dataSetType != kNoDataSet; }

    /// The response to this command: same number, class and instance, no data set.
    DimseCommand MakeResponse(std::uint16_t withStatus) const;

    /// The whole command set with its group length.
    std::vector<unsigned char> Encode() const;

    /// Reads a command set. 1; 0 when the bytes are not one, or when it has no Command Field (0000,0100).
    int Decode(const void* bytes, std::size_t count);
};
