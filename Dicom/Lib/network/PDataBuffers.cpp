#include "PDataBuffers.h"

#include <algorithm>
#include <cstring>

namespace {

// About as many bytes as are handed to the system in one call: several PDUs where the peer takes only small ones.
constexpr std::size_t kBlockBytes = 256 * 1024;

}  // namespace

PDataOutputBuffer::PDataOutputBuffer(DcmService& service, std::uint8_t context, std::uint8_t kind)
    : m_Service(service), m_Context(context), m_Kind(kind),
      m_PduData((service.GetSendLength() - PDataTF::kOverhead) & ~std::size_t{1}) {
    m_bFailed = service.GetState() != DcmService::State::Established;
    if (m_bFailed) m_PduData = 2;
    const std::size_t pdu = PDataTF::kHeadBytes + m_PduData;
    const std::size_t wanted = std::max<std::size_t>(kBlockBytes / pdu, 1) * pdu;
    if (service.m_SendBlock.size() != wanted) service.m_SendBlock.resize(wanted);
}

unsigned char* PDataOutputBuffer::GetRoom(std::size_t& capacity) {
    if (m_InPdu == m_PduData) ClosePdu(false);
    capacity = m_PduData - m_InPdu;
    return m_Service.m_SendBlock.data() + m_Begin + PDataTF::kHeadBytes + m_InPdu;
}

// Writes the header in front of the data of the PDU at hand, and begins the next PDU.
bool PDataOutputBuffer::ClosePdu(bool last) {
    const auto control = static_cast<std::uint8_t>(m_Kind | (last ? PDataTF::kLast : 0));
    PDataTF::PutHead(m_Service.m_SendBlock.data() + m_Begin, m_Context, control, static_cast<std::uint32_t>(m_InPdu));
    PDataTF::DumpHead("Writing", m_Context, control, static_cast<std::uint32_t>(m_InPdu));
    m_Begin += PDataTF::kHeadBytes + m_InPdu;
    m_Count += m_InPdu;
    m_InPdu = 0;
    const bool full = m_Service.m_SendBlock.size() - m_Begin < PDataTF::kHeadBytes + m_PduData;
    return !(last || full) || SendBlock();
}

bool PDataOutputBuffer::SendBlock() {
    if (!m_bFailed && !m_Service.Send(m_Service.m_SendBlock.data(), m_Begin)) {
        m_bFailed = true;
        m_Service.SendFailed();
    }
    m_Begin = 0;
    return !m_bFailed;
}

bool PDataOutputBuffer::Drain(const void* bytes, std::size_t count) {
    const auto* place = static_cast<const unsigned char*>(bytes);
    while (count > 0 && !m_bFailed) {
        std::size_t capacity;
        unsigned char* const room = GetRoom(capacity);
        const std::size_t step = std::min(count, capacity);
        std::memcpy(room, place, step);
        Commit(step);
        place += step;
        count -= step;
    }
    return !m_bFailed;
}

int PDataOutputBuffer::Finish() {
    return Flush() && ClosePdu(true) && !m_bFailed ? 1 : 0;
}

PDataInputBuffer::PDataInputBuffer(DcmService& service, std::uint8_t context, std::uint8_t kind)
    : m_Service(service), m_Context(context), m_Kind(kind) {}

bool PDataInputBuffer::NextPiece() {
    m_Event = m_Service.NextPdv(m_Context, m_Kind);
    if (m_Event != DcmService::Event::Message) return false;
    m_Context = m_Service.m_ContextID;
    m_Left = m_Service.m_DataLength;
    m_bLast = (m_Service.m_ControlHeader & PDataTF::kLast) != 0;
    return true;
}

std::size_t PDataInputBuffer::Fill(void* bytes, std::size_t capacity) {
    if (m_Event != DcmService::Event::Message) return 0;
    while (m_Left == 0) {
        if (m_bLast || !NextPiece()) return 0;
    }
    const std::size_t got = m_Service.ReadSome(bytes, std::min<std::size_t>(capacity, m_Left));
    if (got == 0) m_Event = m_Service.ReadFailed();
    m_Left -= static_cast<std::uint32_t>(got);
    return got;
}

int PDataInputBuffer::Finish() {
    Skip(kUnknown);
    return m_bLast && m_Left == 0 && m_Event == DcmService::Event::Message ? 1 : 0;
}
