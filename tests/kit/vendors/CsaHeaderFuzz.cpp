// libFuzzer: the private header of one maker, both layouts.
#include <Korvane/kit/vendors/CsaHeader.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    const korvane::CsaHeader header({bytes, count});
    for (const char* const name : {"B_value", "NumberOfImagesInMosaic", "MosaicRefAcqTimes"}) header.Numbers(name);
    return 0;
}
