// The text dump of CVolume.

#include "CVolume.h"

#include "base/Integer.h"
#include "platform/File.h"

#include <cstddef>
#include <cstdint>
#include <locale>
#include <sstream>
#include <string>

namespace {

template <typename T>
void PrintList(std::ostream& out, const char* label, const T* values, int count) {
    out << label;
    for (int i = 0; i < count; ++i) {
        out << (i == 0 ? "" : ",") << values[i];
    }
    out << "\n";
}

// A float volume is called "byte" too: hosts depend on the text as it is.
const char* TypeName(CVolume::PixelType type) {
    switch (type) {
    case CVolume::PT_SHORT: return "short";
    case CVolume::PT_USHORT: return "unsigned short";
    case CVolume::PT_BYTE:
    case CVolume::PT_FLOAT: return "byte";
    case CVolume::PT_LONG: return "long";
    case CVolume::PT_ULONG: return "unsigned long";
    }
    return "";
}

}  // namespace

void CVolume::Dump(const char* const path) const {
    platform::OutputFile file;
    if (!file.Open(path)) {
        return;
    }
    std::ostringstream out;
    out.imbue(std::locale::classic());
    PrintList(out, "Dim[4]=", m_Dim, 4);
    PrintList(out, "Space[4]=", m_Space, 4);
    PrintList(out, "Org[4]=", m_Org, 4);
    // Addresses, not cosines, and the same line twice: see `CVolume::Dump`.
    const void* const rows[] = {m_Orient[0], m_Orient[1], m_Orient + 2};
    out << "Orientation\n";
    PrintList(out, "\t", rows, 3);
    PrintList(out, "\t", rows, 3);
    const auto printLow32 = [&](const char* label, long long value) {
        const std::int32_t low = platform::Low32(value);
        out << label;
        if (m_Type == PT_ULONG) {
            out << static_cast<std::uint32_t>(low) << "\n";
        } else {
            out << low << "\n";
        }
    };
    printLow32("Min=", m_Min);
    printLow32("Max=", m_Max);
    out << "Pixel type=" << TypeName(m_Type) << "\n";
    out << "nRefs=" << m_nRefs << "\n";
    for (std::size_t k = 0; k < m_Planes.size(); ++k) {
        out << "Plane[" << k;
        PrintList(out, "] Org[3]=", m_Planes[k].m_Org, 3);
    }
    const std::string text = out.str();
    file.Write(text.data(), text.size());
}
