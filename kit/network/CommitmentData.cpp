#include "CommitmentData.h"

#include "../dataset/Toolkit.h"

#include "Dicom/Lib/network/StorageProvider.h"

#include <algorithm>
#include <memory>
#include <new>

namespace korvane {

namespace {

void PutItems(DICOMDataObject& dataSet, Tag tag, const CommitmentData& data, bool failed) {
    auto sequence = std::make_unique<VR>(tag, 0, 0);
    sequence->m_TypeCode = TypeCode("SQ");
    for (const CommitmentItem& item : data.items) {
        if ((item.failure != 0) != failed) continue;
        auto made = std::make_unique<DICOMDataObject>();
        PutText(*made, tags::ReferencedSOPClassUID, item.sopClass);
        PutText(*made, tags::ReferencedSOPInstanceUID, item.sopInstance);
        if (failed) PutNumber(*made, tags::FailureReason, item.failure);
        if (sequence->AddItem(made.get()) == 0) throw std::bad_alloc();
        made.release();
    }
    if (sequence->GetItemCount() == 0) return;
    if (dataSet.Push(sequence.get()) == 0) throw std::bad_alloc();
    sequence.release();
}

bool IsPrintable(const std::string& text) {
    constexpr std::size_t kLongest = 64;
    return !text.empty() && text.size() <= kLongest &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 127; });
}

// False when the sequence has more than what is still allowed, or an item that names no instance.
bool TakeItems(const DICOMDataObject& dataSet, Tag tag, bool failed, CommitmentData& data) {
    const VR* const sequence = FindElement(dataSet, tag);
    const std::uint32_t count = sequence != nullptr ? sequence->GetItemCount() : 0;
    if (count > CommitmentData::kMostItems - data.items.size()) return false;
    for (std::uint32_t i = 0; i < count; ++i) {
        const DICOMObject& item = *sequence->GetItem(i);
        CommitmentItem& taken = data.items.emplace_back();
        taken.sopClass = FindText(item, tags::ReferencedSOPClassUID);
        taken.sopInstance = FindText(item, tags::ReferencedSOPInstanceUID);
        if (!IsPrintable(taken.sopClass) || !IsPrintable(taken.sopInstance)) return false;
        if (!failed) continue;
        const std::uint16_t reason = item.GetUINT16(tags::FailureReason);
        taken.failure = reason != 0 ? reason : std::uint16_t{kStatusProcessingFailure};
    }
    return true;
}

}  // namespace

std::size_t CommitmentData::CountFailed() const {
    return static_cast<std::size_t>(
        std::count_if(items.begin(), items.end(), [](const CommitmentItem& item) { return item.failure != 0; }));
}

DataSet MakeCommitment(const CommitmentData& data) {
    auto dataSet = std::make_unique<DICOMDataObject>();
    PutText(*dataSet, tags::TransactionUID, data.transaction);
    PutItems(*dataSet, tags::FailedSOPSequence, data, true);
    PutItems(*dataSet, tags::ReferencedSOPSequence, data, false);
    return DataSet::FromToolkit(std::move(dataSet));
}

std::optional<CommitmentData> ReadCommitment(const DICOMDataObject& dataSet) {
    CommitmentData data;
    data.transaction = FindText(dataSet, tags::TransactionUID);
    const bool isRead = IsUid(data.transaction) && TakeItems(dataSet, tags::ReferencedSOPSequence, false, data) &&
                        TakeItems(dataSet, tags::FailedSOPSequence, true, data) && !data.items.empty();
    return isRead ? std::optional(std::move(data)) : std::nullopt;
}

}  // namespace korvane
