// libFuzzer: private elements of all makers that are read, with any values, at the top or in an item.
#include <Korvane/kit/vendors/VendorFacts.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

using namespace korvane;

namespace {

struct Creator {
    std::uint16_t group;
    std::string_view name;
    std::string_view elements;  // last two digits of those that are read
};

constexpr Creator kCreators[] = {
    {0x0019, "SIEMENS MR HEADER", "\x0A\x0C\x0E\x18\x27\x28\x29"},
    {0x0021, "SIEMENS MR SDI 02", "\x51\x53\x1C\x04\x42\x75\xFE"},
    {0x0021, "SIEMENS MR SDS 01", "\x19\xFE"},
    {0x0025, "GEMS_SERS_01", "\x1B"},
    {0x0029, "SIEMENS CSA HEADER", "\x10\x20"},
    {0x0019, "GEMS_ACQU_01", "\xBB\xBC\xBD\x9C"},
    {0x0043, "GEMS_PARM_01", "\x39\x2C\x83\x8A"},
    {0x2001, "Philips Imaging DD 001", "\x03\x04\x22"},
    {0x2005, "Philips MR Imaging DD 001", "\x0E\xB0\xB1\xB2"},
    {0x0065, "Image Private Header", "\x09\x37\x50\x51"},
    {0x0020, "", ""},  // Image Comments, in which one maker writes
};
constexpr std::string_view kTypes[] = {"UN", "DS", "IS", "FD", "FL", "US", "SS", "OB", "LO"};

// The image that all values are read for.
void PutImage(DICOMObject& set) {
    PutText(set, tags::ImageType, "DERIVED\\PRIMARY\\M\\MOSAIC\\VFRAME");
    PutText(set, tags::Manufacturer, "CANON");
    PutText(set, tags::ScanningSequence, "EP");
    PutText(set, tags::RectilinearPhaseEncodeReordering, "LINEAR");
    PutText(set, tags::ImageOrientationPatient, "1\\0\\0\\0\\1\\0");
    PutText(set, tags::ImagePositionPatient, "-100\\-100\\0");
    PutText(set, tags::PixelSpacing, "2\\2");
    PutText(set, tags::SpacingBetweenSlices, "3");
    PutNumber(set, tags::Rows, 128);
    PutNumber(set, tags::Columns, 128);
}

void Put(DICOMObject& set, std::uint16_t group, std::uint16_t element, std::string_view type, std::string_view value) {
    const std::uint16_t code = static_cast<std::uint16_t>(type[0] << 8 | type[1]);
    ReplaceValue(set, MakeTag(group, element), code, value.data(), static_cast<std::uint32_t>(value.size()));
}

}  // namespace

// Elements one after the other: creator, element, type, length of the value, the value. From 128 on a creator's byte
// puts the element into the item of a sequence of that maker.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    DICOMDataObject set;
    PutImage(set);
    auto item = std::make_unique<DICOMDataObject>();
    for (std::size_t at = 0; at + 4 < count;) {
        const Creator& creator = kCreators[(bytes[at] & 127U) % std::size(kCreators)];
        DICOMObject& into = bytes[at] >= 128 ? static_cast<DICOMObject&>(*item) : set;
        const std::size_t length = std::min<std::size_t>(bytes[at + 3] * std::size_t{8}, count - at - 4);
        const std::string_view value(reinterpret_cast<const char*>(bytes + at + 4), length);
        const std::string_view type = kTypes[bytes[at + 2] % std::size(kTypes)];
        if (creator.name.empty()) {
            Put(into, creator.group, 0x4000, "LT", value);
        } else {
            const auto last = static_cast<unsigned char>(creator.elements[bytes[at + 1] % creator.elements.size()]);
            Put(into, creator.group, 0x0010, "LO", creator.name);
            Put(into, creator.group, static_cast<std::uint16_t>(0x1000 | last), type, value);
        }
        at += 4 + length;
    }
    for (const auto& [group, element] : {std::pair{0x0065, 0x1051}, {0x0021, 0x10FE}, {0x2005, 0x140F}}) {
        auto sequence =
            std::make_unique<VR>(static_cast<std::uint16_t>(group), static_cast<std::uint16_t>(element), 0, 0);
        sequence->m_TypeCode = TypeCode("SQ");
        if (sequence->AddItem(item->Clone(true)) == 0 || set.Push(sequence.get()) == 0) continue;
        sequence.release();
    }
    const TileFacts tiles = ReadTiles(set);
    if (tiles.count < 0 || tiles.columns < 0 || tiles.rows < 0) std::abort();
    ReadPrivateDiffusion(set);
    ReadPrivateDiffusion(*item);
    ReadPrivateAcquisition(set);
    ReadPrivateAcquisition(set, item.get());
    return 0;
}
