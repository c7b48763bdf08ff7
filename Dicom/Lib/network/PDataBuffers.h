// Messages as streams: what is written goes out in P-DATA PDUs of the length that the peer takes, what is read comes out
// of them (PS3.8 annex E). Neither holds a message as a whole.
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

    /// Room for data, at least one byte: what is put there directly is counted by `Commit`. Nothing may wait in the
    /// buffer's own write area (see `Flush`).
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
    std::size_t m_Begin = 0;  // of the PDU being filled
    std::size_t m_InPdu = 0;  // data in it
    std::uint64_t m_Count = 0;
    bool m_bFailed = false;
};

/// One command or data set from the peer.
class PDataInputBuffer : public Buffer {
public:
    PDataInputBuffer(DcmService& service, std::uint8_t context, std::uint8_t kind);

    /// Takes what is left. 1 when the message came to its end, 0 when it did not.
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
    std::uint32_t m_Left = 0;  // of the piece at hand
    bool m_bLast = false;
    DcmService::Event m_Event = DcmService::Event::Message;
};
