#include "DimseCommand.h"

#include "Dicom/Lib/dataset/ValueText.h"
#include "Dicom/Lib/stream/MemoryBuffer.h"
#include "Dicom/Lib/syntax/TransferSyntaxTable.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace {

// Elements of group 0000.
enum CommandElement : std::uint16_t {
    kGroupLength = 0x0000,
    kAffectedClass = 0x0002,
    kRequestedClass = 0x0003,
    kCommandField = 0x0100,
    kMessageId = 0x0110,
    kMessageIdRespondedTo = 0x0120,
    kMoveDestination = 0x0600,
    kPriority = 0x0700,
    kDataSetType = 0x0800,
    kStatus = 0x0900,
    kErrorComment = 0x0902,
    kAffectedInstance = 0x1000,
    kRequestedInstance = 0x1001,
    kEventType = 0x1002,
    kActionType = 0x1008,
    kRemaining = 0x1020,
    kCompleted = 0x1021,
    kFailed = 0x1022,
    kWarned = 0x1023
};

constexpr std::size_t kLongestComment = 64;

void PutElement(Buffer& out, std::uint16_t element, std::uint32_t length) {
    out.WriteUINT16(0);
    out.WriteUINT16(element);
    out.WriteUINT32(length);
}

void PutNumber(Buffer& out, std::uint16_t element, std::uint16_t value) {
    PutElement(out, element, 2);
    out.WriteUINT16(value);
}

void PutText(Buffer& out, std::uint16_t element, const std::string& text, char pad) {
    const bool odd = text.size() % 2 != 0;
    PutElement(out, element, static_cast<std::uint32_t>(text.size() + (odd ? 1 : 0)));
    out.Write(text.data(), text.size());
    if (odd) out.WriteUINT8(static_cast<std::uint8_t>(pad));
}

std::string TakeText(Buffer& in) {
    std::string text(static_cast<std::size_t>(in.GetRemaining()), '\0');
    in.Read(text.data(), text.size());
    return TrimmedUid(text);
}

// What statuses mean (PS3.7 annex C, PS3.4 B.2.3 and C.4), the first row that fits: a status does where the digits
// under its mask are those of the row.
struct StatusRow {
    unsigned mask;
    unsigned status;
    const char* text;
};

constexpr StatusRow kStatusRows[] = {
    {0xFFFF, kStatusSuccess, "success"},
    {0xFFFF, kStatusNoSuchInstance, "no such SOP instance"},
    {0xFFFF, kStatusInvalidInstance, "invalid SOP instance"},
    {0xFFFF, kStatusClassNotSupported, "SOP class not supported"},
    {0xFFFF, kStatusNotAuthorized, "not authorized"},
    {0xFFFF, kStatusUnrecognizedOperation, "unrecognized operation"},
    {0xFFFF, kStatusProcessingFailure, "processing failure"},
    {0xFFFF, kStatusInvalidArgument, "invalid argument value"},
    {0xFFFF, kStatusClassInstanceConflict, "class and instance do not belong together"},
    {0xFFFF, kStatusNoSuchAction, "no such action"},
    {0xFFFF, kStatusDuplicateTransaction, "duplicate transaction UID"},
    {0xFFFF, kStatusResourceLimitation, "resource limitation"},
    {0xFFFF, 0x0111, "duplicate SOP instance"},
    {0xFFFF, 0x0210, "duplicate invocation"},
    {0xFFFF, 0x0212, "mistyped argument"},
    {0xFFFF, kStatusDestinationUnknown, "move destination unknown"},
    {0xFFFF, kStatusCancelled, "cancelled"},
    {0xFFFE, kStatusPending, "pending"},
    {0xFF00, kStatusOutOfResources, "out of resources"},
    {0xFF00, kStatusDataSetMismatch, "data set does not match SOP class"},
    {0xF000, kStatusCannotUnderstand, "cannot understand"},
    {0xFFFF, 0xB000, "warning: data elements were coerced"},
    {0xFFFF, 0xB006, "warning: data elements were discarded"},
    {0xFFFF, 0xB007, "warning: data set does not match SOP class"},
    {0xF000, 0xB000, "warning"},
    {0x0000, 0x0000, "unknown status"},
};

}  // namespace

bool IsStored(std::uint16_t status) {
    return status == kStatusSuccess || (status & 0xF000) == 0xB000;
}

bool IsPending(std::uint16_t status) {
    return status == kStatusPending || status == kStatusPending + 1;
}

std::string DimseStatusText(std::uint16_t status) {
    const auto* const row = std::find_if(std::begin(kStatusRows), std::end(kStatusRows),
                                         [&](const StatusRow& known) { return (status & known.mask) == known.status; });
    char number[16];
    std::snprintf(number, sizeof number, " (0x%4.4X)", static_cast<unsigned>(status));
    return std::string(row->text) + number;
}

DimseCommand DimseCommand::MakeResponse(std::uint16_t withStatus) const {
    DimseCommand response = *this;
    response.field = static_cast<std::uint16_t>(field | kResponseBit);
    response.dataSetType = kNoDataSet;
    response.status = withStatus;
    response.errorComment.clear();
    response.moveDestination.clear();
    response.typeId = 0;
    return response;
}

std::vector<unsigned char> DimseCommand::Encode() const {
    MemoryOutputBuffer elements;
    // An action is asked of an instance that is there already; all else names what it affects (PS3.7 10.1).
    const bool isRequested = field == kActionRQ;
    if (!sopClass.empty()) PutText(elements, isRequested ? kRequestedClass : kAffectedClass, sopClass, '\0');
    PutNumber(elements, kCommandField, field);
    const bool isAbout = IsResponse() || field == kCancelRQ;
    PutNumber(elements, isAbout ? kMessageIdRespondedTo : kMessageId, messageId);
    if (!moveDestination.empty()) PutText(elements, kMoveDestination, moveDestination, ' ');
    const bool hasPriority = field == kStoreRQ || field == kGetRQ || field == kFindRQ || field == kMoveRQ;
    if (hasPriority) PutNumber(elements, kPriority, priority);
    PutNumber(elements, kDataSetType, dataSetType);
    if (IsResponse()) PutNumber(elements, kStatus, status);
    if (!errorComment.empty()) PutText(elements, kErrorComment, errorComment.substr(0, kLongestComment), ' ');
    if (!sopInstance.empty()) {
        PutText(elements, isRequested ? kRequestedInstance : kAffectedInstance, sopInstance, '\0');
    }
    if (field == kEventReportRQ) PutNumber(elements, kEventType, typeId);
    if (field == kActionRQ) PutNumber(elements, kActionType, typeId);
    const std::vector<unsigned char>& bytes = elements.GetBytes();
    MemoryOutputBuffer whole;
    PutElement(whole, kGroupLength, 4);
    whole.WriteUINT32(static_cast<std::uint32_t>(bytes.size()));
    whole.Write(bytes.data(), bytes.size());
    return whole.GetBytes();
}

int DimseCommand::Decode(const void* bytes, std::size_t count) {
    *this = {};
    bool hasField = false;
    MemoryInputBuffer in(bytes, count);
    while (in.GetRemaining() > 0) {
        std::uint16_t group;
        std::uint16_t element;
        std::uint32_t length;
        if (!in.ReadUINT16(group) || !in.ReadUINT16(element) || !in.ReadUINT32(length)) return 0;
        if (group != 0 || length > in.GetRemaining()) return 0;
        const Buffer::Window window(in, length);
        bool whole = true;
        switch (element) {
        case kAffectedClass:
        case kRequestedClass: sopClass = TakeText(in); break;
        case kAffectedInstance:
        case kRequestedInstance: sopInstance = TakeText(in); break;
        case kCommandField: whole = hasField = in.ReadUINT16(field); break;
        case kMessageId:
        case kMessageIdRespondedTo: whole = in.ReadUINT16(messageId); break;
        case kPriority: whole = in.ReadUINT16(priority); break;
        case kDataSetType: whole = in.ReadUINT16(dataSetType); break;
        case kStatus: whole = in.ReadUINT16(status); break;
        case kRemaining: whole = in.ReadUINT16(remaining); break;
        case kCompleted: whole = in.ReadUINT16(completed); break;
        case kFailed: whole = in.ReadUINT16(failed); break;
        case kWarned: whole = in.ReadUINT16(warned); break;
        case kErrorComment: errorComment = TakeText(in); break;
        case kEventType:
        case kActionType: whole = in.ReadUINT16(typeId); break;
        default: break;
        }
        if (!whole) return 0;
    }
    return hasField ? 1 : 0;
}
