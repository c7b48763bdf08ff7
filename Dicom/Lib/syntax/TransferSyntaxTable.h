// The transfer syntaxes that the toolkit knows (PS3.6 annex A), and who it says it is.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

inline constexpr std::string_view kImplicitLittleEndianUid = "1.2.840.10008.1.2";
inline constexpr std::string_view kExplicitLittleEndianUid = "1.2.840.10008.1.2.1";
inline constexpr std::string_view kExplicitBigEndianUid = "1.2.840.10008.1.2.2";
inline constexpr std::string_view kDeflatedUid = "1.2.840.10008.1.2.1.99";

/// Sent in association requests and written into file meta information.
inline constexpr std::string_view kImplementationClassUid = "1.2.999.0.1.7310057.2.555.20000624";
inline constexpr std::string_view kImplementationVersionName = "/QX/W32//1.6.7";

/// One row: UID, filled with zero bytes; the syntax number (see `TransferSyntaxNumber`); two fields for the codec
/// manager, 0 until it fills them: the codec's number, from 1 in the order they were found, and what it can do
/// (`DcmCodecProps::abilities`).
struct TransferSyntaxRow {
    char uid[64];
    std::uint32_t codecSlot;
    std::int32_t syntax;
    std::uint32_t codecState;
};

/// 22 rows, and an empty one that ends the table. Process-wide; only the two run-time fields change. The functions below
/// may be called from any thread.
extern TransferSyntaxRow TransferSyntaxTable[23];
inline constexpr unsigned kTransferSyntaxRows = 22;

/// The row of an index; beyond the table, among those registered. Null beyond all.
const TransferSyntaxRow* GetTransferSyntax(unsigned index);

/// Adds a syntax behind the table (codec modules do, for syntaxes that have no row); process-wide. A UID that is known
/// already, or longer than 63 characters, is not added: 0, else 1.
int RegisterTransferSyntax(std::string_view uid, int syntax);

/// Fills the codec manager's fields of a UID's row; 0 when it is in no row, else 1.
int SetTransferSyntaxCodec(std::string_view uid, std::uint32_t slot, std::uint32_t state);

/// The syntax number of a UID; `unknown` when it is in no row.
int FindTransferSyntax(std::string_view uid, int unknown);

/// Whether a UID names one of the three uncompressed syntaxes.
bool IsNativeTransferSyntax(std::string_view uid);
