// The table in which codecs are entered beside the transfer syntaxes (see TransferSyntaxRow.h), and who the toolkit says it is.
#pragma once

#include "TransferSyntaxRow.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

/// Sent in association requests and written into file meta information.
inline constexpr std::string_view kImplementationClassUid = "1.2.999.0.1.7310057.2.555.20000624";
inline constexpr std::string_view kImplementationVersionName = "/QX/W32//1.6.7";

/// One entry: UID, filled with zero bytes; the syntax number (see `TransferSyntaxNumber`); two fields for the codec
/// manager, 0 until it fills them: the codec's number, from 1 in the order they were found, and what it can do
/// (`DcmCodecProps::abilities`).
struct TransferSyntaxEntry {
    char uid[64];
    std::uint32_t codecSlot;
    std::int32_t syntax;
    std::uint32_t codecState;
};

/// The first 22 of `kTransferSyntaxes`, and an empty entry that ends the table. Process-wide; only the two run-time fields
/// change. The functions below may be called from any thread.
inline constexpr unsigned kTransferSyntaxRows = 22;
extern std::array<TransferSyntaxEntry, kTransferSyntaxRows + 1> TransferSyntaxTable;

/// The entry of an index; beyond the table, among those registered. Null beyond all.
const TransferSyntaxEntry* GetTransferSyntax(unsigned index);

/// Adds a syntax behind the table (codec modules do, for syntaxes that have no entry); process-wide. A UID that is known
/// already, or longer than 63 characters, is not added: 0, else 1.
int RegisterTransferSyntax(std::string_view uid, int syntax);

/// Fills the codec manager's fields of a UID's entry; 0 when it has none, else 1.
int SetTransferSyntaxCodec(std::string_view uid, std::uint32_t slot, std::uint32_t state);

/// The syntax number of a UID; `unknown` when it has no entry, as those have not that no codec was found for.
int FindTransferSyntax(std::string_view uid, int unknown);
