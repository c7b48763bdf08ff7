#include "PduHeader.h"

bool PduHeader::WriteHeader(Buffer& buffer) const {
    buffer.SetByteOrder(Buffer::kBigEndian);
    return buffer.WriteUINT8(m_Type) && buffer.WriteUINT8(m_Reserved1) && buffer.WriteUINT32(m_Length);
}

bool PduHeader::ReadHeader(Buffer& buffer, std::uint8_t type) {
    m_Type = type;
    buffer.SetByteOrder(Buffer::kBigEndian);
    return buffer.ReadUINT8(m_Reserved1) && buffer.ReadUINT32(m_Length);
}
