#include "TransferSyntaxTable.h"

#include "TransferSyntaxCodec.h"

#include <cstring>
#include <deque>
#include <mutex>

TransferSyntaxRow TransferSyntaxTable[kTransferSyntaxRows + 1] = {
    {"1.2.840.10008.1.2", 0, kImplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.1", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.2", 0, kExplicitBigEndian, 0},
    // Compressed syntaxes carry their data sets in explicit VR little endian: RLE, then the JPEG family.
    {"1.2.840.10008.1.2.5", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.50", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.51", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.52", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.53", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.54", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.55", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.56", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.57", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.58", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.59", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.60", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.61", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.62", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.63", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.64", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.65", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.66", 0, kExplicitLittleEndian, 0},
    {"1.2.840.10008.1.2.4.70", 0, kExplicitLittleEndian, 0},
    {"", 0, 0, 0},
};

namespace {

/// Threads with readers of their own look rows up while a codec manager adds some: the caller holds the lock.
std::mutex& Lock() {
    static std::mutex lock;
    return lock;
}

/// Rows stay where they are when others are added.
std::deque<TransferSyntaxRow>& Registered() {
    static std::deque<TransferSyntaxRow> rows;
    return rows;
}

TransferSyntaxRow* RowAt(unsigned index) {
    if (index < kTransferSyntaxRows) return &TransferSyntaxTable[index];
    const std::size_t beyond = index - kTransferSyntaxRows;
    return beyond < Registered().size() ? &Registered()[beyond] : nullptr;
}

TransferSyntaxRow* FindRow(std::string_view uid) {
    for (unsigned i = 0;; ++i) {
        TransferSyntaxRow* const row = RowAt(i);
        if (row == nullptr || uid == row->uid) return row;
    }
}

}  // namespace

const TransferSyntaxRow* GetTransferSyntax(unsigned index) {
    const std::lock_guard guard(Lock());
    return RowAt(index);
}

int RegisterTransferSyntax(std::string_view uid, int syntax) {
    const std::lock_guard guard(Lock());
    if (uid.empty() || uid.size() >= sizeof TransferSyntaxRow::uid || FindRow(uid) != nullptr) return 0;
    TransferSyntaxRow row{};
    std::memcpy(row.uid, uid.data(), uid.size());
    row.syntax = syntax;
    Registered().push_back(row);
    return 1;
}

int SetTransferSyntaxCodec(std::string_view uid, std::uint32_t slot, std::uint32_t state) {
    const std::lock_guard guard(Lock());
    TransferSyntaxRow* const row = FindRow(uid);
    if (row == nullptr) return 0;
    row->codecSlot = slot;
    row->codecState = state;
    return 1;
}

int FindTransferSyntax(std::string_view uid, int unknown) {
    const std::lock_guard guard(Lock());
    const TransferSyntaxRow* const row = FindRow(uid);
    return row != nullptr ? row->syntax : unknown;
}

bool IsNativeTransferSyntax(std::string_view uid) {
    return uid == kImplicitLittleEndianUid || uid == kExplicitLittleEndianUid || uid == kExplicitBigEndianUid;
}
