#include "TransferSyntaxTable.h"

#include "platform/Fork.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <mutex>

namespace {

consteval std::array<TransferSyntaxEntry, kTransferSyntaxRows + 1> MakeTable() {
    std::array<TransferSyntaxEntry, kTransferSyntaxRows + 1> table{};
    for (unsigned i = 0; i < kTransferSyntaxRows; ++i) {
        const TransferSyntaxRow& row = kTransferSyntaxes[i];
        std::copy(row.uid.begin(), row.uid.end(), table[i].uid);
        table[i].syntax = row.number;
    }
    return table;
}

}  // namespace

constinit std::array<TransferSyntaxEntry, kTransferSyntaxRows + 1> TransferSyntaxTable = MakeTable();

namespace {

/// Threads with readers of their own look entries up while a codec manager adds some: the caller holds the lock.
std::mutex& Lock() {
    static platform::HeldWhileForking<std::mutex, 1> lock;
    return lock;
}

/// Entries stay where they are when others are added.
std::deque<TransferSyntaxEntry>& Registered() {
    static std::deque<TransferSyntaxEntry> entries;
    return entries;
}

TransferSyntaxEntry* EntryAt(unsigned index) {
    if (index < kTransferSyntaxRows) return &TransferSyntaxTable[index];
    const std::size_t beyond = index - kTransferSyntaxRows;
    return beyond < Registered().size() ? &Registered()[beyond] : nullptr;
}

TransferSyntaxEntry* FindEntry(std::string_view uid) {
    for (unsigned i = 0;; ++i) {
        TransferSyntaxEntry* const entry = EntryAt(i);
        if (entry == nullptr || uid == entry->uid) return entry;
    }
}

}  // namespace

const TransferSyntaxEntry* GetTransferSyntax(unsigned index) {
    const std::lock_guard guard(Lock());
    return EntryAt(index);
}

int RegisterTransferSyntax(std::string_view uid, int syntax) {
    const std::lock_guard guard(Lock());
    if (uid.empty() || uid.size() >= sizeof TransferSyntaxEntry::uid || FindEntry(uid) != nullptr) return 0;
    TransferSyntaxEntry entry{};
    std::memcpy(entry.uid, uid.data(), uid.size());
    entry.syntax = syntax;
    Registered().push_back(entry);
    return 1;
}

int SetTransferSyntaxCodec(std::string_view uid, std::uint32_t slot, std::uint32_t state) {
    const std::lock_guard guard(Lock());
    TransferSyntaxEntry* const entry = FindEntry(uid);
    if (entry == nullptr) return 0;
    entry->codecSlot = slot;
    entry->codecState = state;
    return 1;
}

int FindTransferSyntax(std::string_view uid, int unknown) {
    const std::lock_guard guard(Lock());
    const TransferSyntaxEntry* const entry = FindEntry(uid);
    return entry != nullptr ? entry->syntax : unknown;
}
