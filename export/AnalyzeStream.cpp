#include "AnalyzeStream.h"

#include "AnalyzeHeader.h"
#include "CFileWriter.h"
#include "base/Bytes.h"

#include <cerrno>
#include <cstring>

namespace korvane_detail {

namespace {

constexpr std::int32_t kHeaderSize = 348;
constexpr std::size_t kLargestField = 32;  // bytes: pixdim is the longest array

}  // namespace

AnalyzeStream::~AnalyzeStream() {
    try {
        Close();
    } catch (...) {
        // A host's writer may throw from Close; the exception under way is the one to report.
    }
}

void AnalyzeStream::Open(const std::string& path) {
    if (m_bWriting) {
        if (m_pWriter == nullptr || !m_pWriter->Open(path.c_str(), "wb")) {
            throw 1;
        }
    } else if (!m_Input.Open(path.c_str())) {
        throw int{errno};
    }
    m_bOpen = true;
}

void AnalyzeStream::Close() {
    if (!m_bOpen) {
        return;
    }
    m_bOpen = false;
    if (m_bWriting) {
        m_pWriter->Close();
    } else {
        m_Input.Close();
    }
}

void AnalyzeStream::Bytes(void* bytes, std::size_t count) {
    if (m_bWriting) {
        const unsigned wanted = static_cast<unsigned>(count);
        if (m_pWriter->Write(bytes, 1, wanted) != wanted) {
            throw 1;
        }
    } else if (m_Input.Read(bytes, count) != count) {
        throw m_Input.HasFailed() ? int{errno} : EIO;
    }
}

void AnalyzeStream::Byte(char& value) {
    Bytes(&value, 1);
    if (!m_bWriting && value == static_cast<char>(0xFF)) {
        throw EIO;  // 0xFF is taken for the end of the file: see CAnalyzeVolume::ReadHeader
    }
}

void AnalyzeStream::Text(char* text, std::size_t length) {
    Bytes(text, length);
    text[length] = '\0';
}

void AnalyzeStream::Numbers(void* values, unsigned unit, unsigned count) {
    unsigned char field[kLargestField];
    const std::size_t bytes = std::size_t{unit} * count;
    std::memcpy(field, values, bytes);
    if (m_bWriting && m_bSwap) {
        platform::SwapUnits(field, bytes, unit);
    }
    Bytes(field, bytes);
    if (!m_bWriting) {
        if (m_bSwap) {
            platform::SwapUnits(field, bytes, unit);
        }
        std::memcpy(values, field, bytes);
    }
}

bool AnalyzeStream::SizeField(AnalyzeHeader& header) {
    header.sizeof_hdr = kHeaderSize;
    if (!m_bWriting) {
        m_bSwap = true;
    }
    Number(header.sizeof_hdr);
    if (!m_bWriting && header.sizeof_hdr != kHeaderSize) {
        m_bSwap = false;  // then it is taken for a little-endian file, and its own size is not examined
        header.sizeof_hdr = kHeaderSize;
    }
    return m_bSwap;
}

bool AnalyzeStream::Header(AnalyzeHeader& header) {
    const bool bigEndian = SizeField(header);
    Text(header.data_type, 10);
    Text(header.db_name, 18);
    Number(header.extents);
    Number(header.session_error);
    Byte(header.regular);
    Byte(header.hkey_un0);

    Numbers(header.dim);
    Text(header.vox_units, 4);
    Text(header.cal_units, 8);
    Number(header.unused1);
    auto datatype = static_cast<std::int16_t>(header.datatype);
    Number(datatype);
    header.datatype = datatype;
    Number(header.bitpix);
    Number(header.dim_un0);
    Numbers(header.pixdim);
    for (float* value : {&header.vox_offset, &header.funused1, &header.funused2, &header.funused3, &header.cal_max,
                         &header.cal_min, &header.compressed, &header.verified}) {
        Number(*value);
    }
    Number(header.glmax);
    Number(header.glmin);

    Text(header.descrip, 80);
    Text(header.aux_file, 24);
    Byte(header.orient);
    Numbers(header.originator);
    for (char* text : {header.generated, header.scannum, header.patient_id, header.exp_date, header.exp_time}) {
        Text(text, 10);
    }
    Text(header.hist_un0, 3);
    for (std::int32_t* value : {&header.views, &header.vols_added, &header.start_field, &header.field_skip,
                                &header.omax, &header.omin, &header.smax, &header.smin}) {
        Number(*value);
    }
    return bigEndian;
}

}  // namespace korvane_detail
