// The toolkit's trace of what it parses, encodes, sends and receives, for diagnosis in the field.
//
// Each call names the bit of the debug flag word (its level) that must be on. The log is the file set with
// `SetDumpLogPath` or named by the environment variable "DCM_DUMP_PATH", else "DcmServiceDump.log" in the current
// directory. Every call opens it for appending, writes and closes it again, so that it survives a crash and can be read
// while the program runs. A log that cannot be opened is passed over.
//
// The flag word and the path are process-wide, once in the dynamic module and once in a host that links the toolkit
// archive. Threads may trace at the same time; what one call writes stays together. "DCM_DUMP_FLAGS" (decimal, or
// hexadecimal behind 0x) sets bits in both; it and the path are read once, at the first use.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

class TransferSyntaxCodec;
class VR;

/// The bits in use.
enum DumpLevel : std::uint32_t {
    kDumpSocket = 1,          ///< socket lines and hex dumps; on when "DCM_DUMP_SOCKET" is set and a socket is made
    kDumpPData = 2,           ///< PDU fields; on when "DCM_DUMP_PDATA" is set and a P-DATA PDU is made
    kDumpTransferSyntax = 4,  ///< parsing and encoding, element lines; set by the host
    kDumpPduBanner = 16       ///< PDU banners; set by the host
};

/// Sets or clears bits of the flag word.
void SetDebugFlag(std::uint32_t bits, bool on);

/// True when any of the bits is on.
bool IsDebugFlagOn(std::uint32_t bits);

/// Where the log is written.
std::string DumpLogName();

/// Another place for the log; empty for the default.
void SetDumpLogPath(const std::string& path);

/// One line: the local time, " : ", the text.
void TraceStamped(const char* text, std::uint32_t level);

/// Text by a printf format, as it stands.
void Trace(std::uint32_t level, const char* format, ...);

/// 32 bytes a line: offsets, hexadecimal, characters.
void HexDump(const void* bytes, int count, std::uint32_t level);

/// One line for an element: stream offset, tag, length, type, the name that the codec's dictionary knows, value.
/// Binary values show their first 32 bytes. `codec` may be null.
void DumpElement(std::uint32_t level, const VR& element, const TransferSyntaxCodec* codec);
