// Messages as streams (PS3.8 annex E): bytes written to one buffer leave in P-DATA PDUs of the length that the peer
// takes, bytes read from the other come out of the PDUs that arrive. Neither holds a whole message in memory.
#pragma once

#include "DcmService.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// One command or data set to the peer. Several PDUs leave in one block, each with its header in front of its data.
class PDataOutputBuffer : public Buffer {
public:
    /// `kind`: `PDataTF::kCommand` or 0. The service must outlive the buffer.
    PDataOutputBuffer(DcmService& service, std::uint8_t context, std::uint8_t kind);

    /// The place in the PDU at hand where data may be put directly, at least one byte; `Commit` then says how many
    /// bytes were. The buffer's own write area must be empty (see `Flush`).
    unsigned char* GetRoom(std::size_t& capacity);
    void Commit(std::size_t count) { m_InPdu += count; }

    /// Marks the last piece and sends what is left. 1, or 0 when anything failed.
    int Finish();

    /// Bytes of data taken so far.
    std::uint64_t GetCount() const { return m_Count + m_InPdu; }

protected:
    bool Drain(const void* bytes, std::size_t count) override;

private:
    bool ClosePdu(bool last);
    bool SendBlock();

    DcmService& m_Service;
    std::uint8_t m_Context;
    std::uint8_t m_Kind;
    std::size_t m_PduData;    // bytes of data in a full PDU
    std::size_t m_Begin = 0;  // where the PDU that is being filled begins in the block
    std::size_t m_InPdu = 0;  // bytes of data in that PDU
    std::uint64_t m_Count = 0;
    bool m_bFailed = false;
};

/// One command or data set from the peer.
class PDataInputBuffer : public Buffer {
public:
    PDataInputBuffer(DcmService& service, std::uint8_t context, std::uint8_t kind);

    /// Reads and drops the rest of the message. 1 when its end arrived, 0 when it did not.
    int Finish();

    /// `Message` while all is well; else how the association ended.
    DcmService::Event GetEvent() const { return m_Event; }

protected:
    std::size_t Fill(void* bytes, std::size_t capacity) override;

private:
    bool NextPiece();

    DcmService& m_Service;
    std::uint8_t m_Context;
    std::uint8_t m_Kind;
    std::uint32_t m_Left = 0;  // bytes not yet read of the PDV at hand
    bool m_bLast = false;
    DcmService::Event m_Event = DcmService::Event::Message;
};
