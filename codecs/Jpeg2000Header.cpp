#include "Jpeg2000Header.h"

#include "FrameLayout.h"

#include <algorithm>

namespace {

constexpr std::uint32_t kSocSiz = 0xFF4FFF51;
constexpr std::uint32_t kSignatureBox = 0x6A502020;   // "jP  "
constexpr std::uint32_t kCodeStreamBox = 0x6A703263;  // "jp2c"
constexpr std::size_t kFixedSize = 42;                // bytes before the description of the first component
constexpr std::uint64_t kAlwaysTaken = 1U << 24;      // samples that a stream of any length may claim
constexpr std::uint64_t kMostPerByte = 1024;          // samples of larger images; pictures are useless from 100 on
constexpr unsigned kCod = 0xFF52, kCoc = 0xFF53, kSot = 0xFF90, kSod = 0xFF93, kEoc = 0xFFD9;

std::uint32_t Load32(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
}

std::uint32_t Load16(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) << 8 | bytes[1];
}

std::uint64_t TilesAlong(std::uint32_t end, std::uint32_t start, std::uint32_t size) {
    return (std::uint64_t{end} - start + size - 1) / size;
}

struct Tiling {
    std::uint64_t count = 0;
    std::uint64_t width = 0, height = 0;  // of a tile, in pixels, at most the image's
    std::uint64_t components = 0;
    std::uint64_t pixels = 0;  // of the whole image
};

// Limits the number of tiles, since the decoder allocates kilobytes for each one that the header states. Each argument
// but `format` is a pair, horizontal and vertical: the image's end and origin, the tiles' size and origin.
Tiling CheckTiles(const std::uint32_t* end, const std::uint32_t* origin, const std::uint32_t* size,
                  const std::uint32_t* start, const DcmFrameFormat& format) {
    for (int i = 0; i < 2; ++i) {
        if (size[i] == 0 || start[i] > origin[i] || std::uint64_t{start[i]} + size[i] <= origin[i]) {
            Fail("JPEG 2000: the tiles do not cover the image");
        }
    }
    Tiling tiling;
    tiling.count = TilesAlong(end[0], start[0], size[0]) * TilesAlong(end[1], start[1], size[1]);
    tiling.width = std::min(size[0], format.columns);
    tiling.height = std::min(size[1], format.rows);
    tiling.components = format.samplesPerPixel;
    tiling.pixels = std::uint64_t{format.columns} * format.rows;
    if (tiling.count > 65535 || tiling.count > 16 + tiling.pixels / 256) {
        Fail("JPEG 2000: ", tiling.count, " tiles are too many for the image");
    }
    return tiling;
}

// Limits the number of precincts over all resolutions, for each of which the decoder allocates kilobytes too. `coding`
// is the part of a COD or COC segment (T.800 A.6.1) that begins with the number of decomposition levels; four bytes
// that do not matter here follow, then, with `hasSizes`, a byte for each resolution with the exponents of the
// precincts' sides, which are 15 otherwise.
void CheckPrecincts(std::span<const std::uint8_t> coding, bool hasSizes, const Tiling& tiling) {
    const unsigned levels = coding.empty() ? 0 : coding[0];
    if (levels > 32 || coding.size() < 5 + (hasSizes ? levels + 1 : 0)) Fail("JPEG 2000: the coding style is damaged");
    std::uint64_t precincts = 0;
    for (unsigned i = 0; i <= levels; ++i) {
        const unsigned sides = hasSizes ? coding[5 + i] : 0xFF;
        const unsigned x = levels - i + (sides & 15), y = levels - i + (sides >> 4);
        precincts += ((tiling.width >> x) + 1) * ((tiling.height >> y) + 1);
    }
    precincts *= tiling.count * tiling.components;
    if (precincts > 4096 + tiling.pixels * tiling.components / 32) {
        Fail("JPEG 2000: ", precincts, " precincts are too many for the image");
    }
}

// Checks the coding styles (COD and COC segments) in the main header and in the headers of all tile parts; the tile
// parts' data is skipped.
void CheckCodingStyles(std::span<const std::uint8_t> stream, const Tiling& tiling) {
    std::size_t at = 2, tilePart = 0;
    while (stream.size() - at >= 4) {
        const unsigned marker = Load16(&stream[at]);
        if (marker == kEoc) return;
        if (marker == kSod) {
            const std::size_t length = Load32(&stream[tilePart + 6]);
            if (length < at - tilePart + 2 || length > stream.size() - tilePart) {
                return;  // the last tile part, or one that is cut off: no header follows
            }
            at = tilePart + length;
            continue;
        }
        const std::size_t length = Load16(&stream[at + 2]);
        if (length < 2 || length > stream.size() - at - 2) Fail("JPEG 2000: the header is not whole");
        const auto body = stream.subspan(at + 4, length - 2);
        if (marker == kSot) {
            if (body.size() != 8) Fail("JPEG 2000: the header of a tile is damaged");
            tilePart = at;
        } else if (marker == kCod && body.size() >= 5) {
            CheckPrecincts(body.subspan(5), (body[0] & 1) != 0, tiling);
        } else if (marker == kCoc && body.size() >= 2) {
            CheckPrecincts(body.subspan(2), (body[1] & 1) != 0, tiling);
        }
        at += 2 + length;
    }
}

}  // namespace

std::span<const std::uint8_t> FindCodeStream(std::span<const std::uint8_t> stream) {
    if (stream.size() < 12 || Load32(&stream[4]) != kSignatureBox) return stream;
    while (stream.size() >= 8) {
        std::uint64_t length = Load32(stream.data());
        const std::uint64_t header = length == 1 ? 16 : 8;
        if (length == 1 && stream.size() >= 16) length = std::uint64_t{Load32(&stream[8])} << 32 | Load32(&stream[12]);
        if (length == 0) length = stream.size();
        if (length < header || length > stream.size()) break;
        const auto box = stream.first(static_cast<std::size_t>(length));
        if (Load32(&stream[4]) == kCodeStreamBox) return box.subspan(static_cast<std::size_t>(header));
        stream = stream.subspan(box.size());
    }
    Fail("JPEG 2000: no code stream in the JP2 file");
}

Jpeg2000Header::Jpeg2000Header(std::span<const std::uint8_t> codeStream, const DcmFrameFormat& format) {
    if (codeStream.size() < kFixedSize || Load32(codeStream.data()) != kSocSiz) Fail("the stream is not JPEG 2000");
    std::uint32_t numbers[8];  // each horizontal, vertical: the image's end and origin, the tiles' size and origin
    for (std::size_t i = 0; i < 8; ++i) numbers[i] = Load32(&codeStream[8 + 4 * i]);
    if (numbers[0] <= numbers[2] || numbers[1] <= numbers[3]) Fail("JPEG 2000: the image is empty");
    const std::size_t count = codeStream[40] << 8 | codeStream[41];
    CheckDimensions(format, numbers[0] - numbers[2], numbers[1] - numbers[3], count);
    const std::uint64_t samples = std::uint64_t{format.columns} * format.rows * count;
    if (samples > kAlwaysTaken && samples / kMostPerByte > codeStream.size()) {
        Fail("JPEG 2000: ", codeStream.size(), " bytes are too few for the image");
    }
    const Tiling tiling = CheckTiles(numbers, numbers + 2, numbers + 4, numbers + 6, format);

    if (codeStream.size() < kFixedSize + 3 * count) Fail("JPEG 2000: the header is not whole");
    const unsigned form = codeStream[kFixedSize];
    for (std::size_t c = 0; c < count; ++c) {
        const std::uint8_t* const component = &codeStream[kFixedSize + 3 * c];
        if (component[1] != 1 || component[2] != 1) Fail("JPEG 2000: components smaller than the image");
        if (component[0] != form) Fail("JPEG 2000: components of different bits");
    }
    CheckCodingStyles(codeStream, tiling);
    precision = (form & 0x7F) + 1;
    isSigned = (form & 0x80) != 0;
    if (precision > format.bitsAllocated || precision > 31) {
        Fail("JPEG 2000: samples of ", precision, " bits do not go with ", format.bitsAllocated, " bits allocated");
    }
}
