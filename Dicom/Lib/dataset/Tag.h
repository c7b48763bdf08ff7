// The tag of a data element (PS3.5 7.1): group and element number in one value.
#pragma once

#include <cstdint>

namespace tags {

/// Compares and sorts as (group, element), both unsigned. A data set's own order is another one, see `DICOMObject`.
/// The tags that the standard names have constants in `dictionary/Tags.generated.h`: `tags::PatientName`.
enum class Tag : std::uint32_t {};

constexpr Tag MakeTag(std::uint16_t group, std::uint16_t element) {
    return static_cast<Tag>((std::uint32_t{group} << 16) | element);
}
constexpr std::uint16_t GroupOf(Tag tag) {
    return static_cast<std::uint16_t>(static_cast<std::uint32_t>(tag) >> 16);
}
constexpr std::uint16_t ElementOf(Tag tag) {
    return static_cast<std::uint16_t>(static_cast<std::uint32_t>(tag) & 0xFFFF);
}

}  // namespace tags
