#include "Stream.h"

#include <cstdint>
#include <string_view>

namespace {

class Writer {
public:
    explicit Writer(bool explicitVR) : m_bExplicit(explicitVR) {
        m_Bytes.assign(128, '\0');
        m_Bytes += "DICM";
        m_bExplicit = true;
        const std::string_view syntax =
            explicitVR ? std::string_view("1.2.840.10008.1.2.1\0", 20) : std::string_view("1.2.840.10008.1.2\0", 18);
        Put(0x00020000, "UL", Word32(static_cast<std::uint32_t>(syntax.size()) + 8));
        Put(0x00020010, "UI", syntax);
        m_bExplicit = explicitVR;
    }

    // An element with a short length; the value's length must be even.
    void Put(std::uint32_t tag, const char* type, std::string_view value) {
        PutTag(tag);
        if (m_bExplicit) {
            m_Bytes += type;
            m_Bytes += Word16(static_cast<std::uint16_t>(value.size()));
        } else {
            m_Bytes += Word32(static_cast<std::uint32_t>(value.size()));
        }
        m_Bytes += value;
    }

    void PutPixels(std::uint32_t bytes) {
        PutTag(0x7FE00010);
        m_Bytes += std::string_view("OW\0\0", 4);
        m_Bytes += Word32(bytes) + std::string(bytes, '\7');
    }

    // A sequence of undefined length; `putItem(i)` writes what is in item i.
    template <class PutItem>
    void PutSequence(std::uint32_t tag, std::size_t items, PutItem putItem) {
        PutTag(tag);
        if (m_bExplicit) m_Bytes += std::string_view("SQ\0\0", 4);
        m_Bytes += Word32(0xFFFFFFFF);
        for (std::size_t i = 0; i < items; ++i) {
            PutTag(0xFFFEE000);
            m_Bytes += Word32(0xFFFFFFFF);
            putItem(i);
            PutTag(0xFFFEE00D);
            m_Bytes += Word32(0);
        }
        PutTag(0xFFFEE0DD);
        m_Bytes += Word32(0);
    }

    static std::string Word16(std::uint16_t value) {
        return {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8)};
    }
    static std::string Word32(std::uint32_t value) {
        return Word16(static_cast<std::uint16_t>(value)) + Word16(static_cast<std::uint16_t>(value >> 16));
    }

    std::string Take() { return std::move(m_Bytes); }

private:
    void PutTag(std::uint32_t tag) {
        m_Bytes += Word16(static_cast<std::uint16_t>(tag >> 16));
        m_Bytes += Word16(static_cast<std::uint16_t>(tag));
    }

    std::string m_Bytes;
    bool m_bExplicit;
};

// Six elements.
void PutMeasurement(Writer& out) {
    out.Put(0x00080100, "SH", "121401");
    out.Put(0x00080102, "SH", "DCM ");
    out.Put(0x00080104, "LO", "Derivation");
    out.Put(0x0040A30A, "DS", "17.25 ");
    out.Put(0x00620004, "US", Writer::Word16(3));
    out.Put(0x300A00B4, "DS", "0.5 ");
}

// 21 elements: 14 values, and a sequence of one item.
void PutContent(Writer& out, std::size_t index) {
    out.Put(0x00080060, "CS", "CT");
    out.Put(0x00081150, "UI", std::string_view("1.2.840.10008.5.1.4.1.1.2\0", 26));
    out.Put(0x00081155, "UI", "2.25.2814749767106560001.20240229.1.2.17");
    out.Put(0x00180050, "DS", "1.25");
    out.Put(0x00180060, "DS", "120 ");
    out.Put(0x00200011, "IS", "2 ");
    out.Put(0x00200013, "IS", "17");
    out.Put(0x00200032, "DS", "-179.5\\-179.5\\-1024.25");
    out.Put(0x00280010, "US", Writer::Word16(512));
    out.Put(0x00280011, "US", Writer::Word16(512));
    out.Put(0x00281050, "DS", "40");
    out.Put(0x00281051, "DS", "400 ");
    out.Put(0x0040A040, "CS", index % 2 != 0 ? "NUM " : "CODE");
    out.PutSequence(0x0040A043, 1, [&](std::size_t) { PutMeasurement(out); });
    out.Put(0x0040DB00, "CS", "300 ");
}

// 200 elements: 10 values, and a sequence of 9 items.
void PutGroup(Writer& out) {
    out.Put(0x00080018, "UI", "2.25.2814749767106560001.20240229.1.2.17");
    out.Put(0x00080020, "DA", "20240229");
    out.Put(0x00080030, "TM", "101502");
    out.Put(0x00080050, "SH", "A-2024-004711 ");
    out.Put(0x00080070, "LO", "Phantom Works ");
    out.Put(0x00100010, "PN", "Phantom^Benchmark ");
    out.Put(0x00100020, "LO", "BENCH-0001");
    out.Put(0x00100040, "CS", "O ");
    out.Put(0x00180015, "CS", "CHEST ");
    out.Put(0x00200010, "SH", "1 ");
    out.PutSequence(0x0040A730, 9, [&](std::size_t i) { PutContent(out, i); });
}

// Four elements: a sequence of one coded entry (PS3.3 8.8).
void PutCode(Writer& out, std::uint32_t tag, const char* code, const char* meaning) {
    out.PutSequence(tag, 1, [&](std::size_t) {
        out.Put(0x00080100, "SH", code);
        out.Put(0x00080102, "SH", "DCM ");
        out.Put(0x00080104, "LO", meaning);
    });
}

// 12 elements in four items: a measured number (PS3.3 C.18.1).
void PutNumber(Writer& out) {
    out.Put(0x0040A010, "CS", "CONTAINS");
    out.Put(0x0040A040, "CS", "NUM ");
    PutCode(out, 0x0040A043, "112031", "Attenuation Coefficient ");
    out.PutSequence(0x0040A300, 1, [&](std::size_t) {
        PutCode(out, 0x004008EA, "HU", "Hounsfield unit ");
        out.Put(0x0040A30A, "DS", "17.25 ");
    });
}

// 200 elements: a container of 16 numbers.
void PutContainer(Writer& out) {
    out.Put(0x0040A010, "CS", "CONTAINS");
    out.Put(0x0040A040, "CS", "CONTAINER ");
    PutCode(out, 0x0040A043, "125007", "Measurement Group ");
    out.Put(0x0040A050, "CS", "SEPARATE");
    out.PutSequence(0x0040A730, 16, [&](std::size_t) { PutNumber(out); });
}

}  // namespace

std::string MakeNestedStream(std::size_t elements, bool explicitVR) {
    Writer out(explicitVR);
    out.PutSequence(0x0040A730, elements / 200, [&](std::size_t) { PutGroup(out); });
    return out.Take();
}

std::string MakeReportStream(std::size_t elements) {
    Writer out(true);
    out.PutSequence(0x0040A730, elements / 200, [&](std::size_t) { PutContainer(out); });
    return out.Take();
}

std::string MakeSmallFile() {
    constexpr std::uint32_t kPrivate = 150;
    Writer out(true);
    PutGroup(out);
    const std::string number = "12.345678 ";
    for (std::uint32_t i = 0; i < kPrivate; ++i) {
        const std::uint32_t tag = 0x00511000 + i;
        i % 4 == 0 ? out.Put(tag, "US", Writer::Word16(512)) : out.Put(tag, i % 4 == 1 ? "LO" : "DS", number);
    }
    out.PutPixels(2 * 64 * 64);
    return out.Take();
}

std::string MakePrivateStream(std::size_t elements, bool descending) {
    Writer out(false);
    for (std::size_t i = 0; i < elements; ++i) {
        const auto place = static_cast<std::uint32_t>(descending ? elements - 1 - i : i);
        // Private groups have odd numbers; each takes 240 elements.
        out.Put((0x0009 + 2 * (place / 240)) << 16 | (0x1000 + place % 240), "LO", "value ");
    }
    return out.Take();
}
