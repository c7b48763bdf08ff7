// The header of NIfTI files: version 1, and version 2 where a side is longer than 16 bits say.
#include "VoxelGrid.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace korvane {

namespace {

constexpr int kScanner = 1;  // code of a position: where the scanner says
constexpr int kAligned = 2;  // computed from that
constexpr int kMillimetresAndSeconds = 2 | 8;
constexpr std::size_t kVersion1 = 348;
constexpr std::size_t kVersion2 = 540;
constexpr std::size_t kExtender = 4;  // bytes that say that no extension follows

int CodeOf(VoxelType type) {
    switch (type) {
    case VoxelType::UInt8: return 2;
    case VoxelType::Int16: return 4;
    case VoxelType::Int32: return 8;
    case VoxelType::Float32: return 16;
    case VoxelType::Float64: return 64;
    case VoxelType::Rgb24: return 128;
    case VoxelType::Int8: return 256;
    case VoxelType::UInt16: return 512;
    case VoxelType::UInt32: return 768;
    }
    return 0;
}

double LengthOf(const Volume::Vector& v) {
    return std::hypot(v[0], v[1], v[2]);
}

/// The format's axes lead to the right, the front and the head: DICOM's first two, reversed.
Volume::Vector ToRas(const Volume::Vector& v) {
    return {-v[0], -v[1], v[2]};
}

struct Quaternion {
    double b = 0;
    double c = 0;
    double d = 0;
    double handedness = 1;  // -1: the third axis is reversed
};

/// Of axes at right angles, unit vectors.
Quaternion QuaternionOf(std::array<Volume::Vector, 3> axes) {
    Quaternion q;
    const auto m = [&axes](std::size_t row, std::size_t column) { return axes[column][row]; };
    const double determinant = m(0, 0) * (m(1, 1) * m(2, 2) - m(1, 2) * m(2, 1)) -
                               m(0, 1) * (m(1, 0) * m(2, 2) - m(1, 2) * m(2, 0)) +
                               m(0, 2) * (m(1, 0) * m(2, 1) - m(1, 1) * m(2, 0));
    if (determinant < 0) {
        q.handedness = -1;
        for (double& value : axes[2]) value = -value;
    }
    // The largest of the four parts is found first: dividing by it is safe.
    const double squares[] = {1 + m(0, 0) + m(1, 1) + m(2, 2), 1 + m(0, 0) - m(1, 1) - m(2, 2),
                              1 - m(0, 0) + m(1, 1) - m(2, 2), 1 - m(0, 0) - m(1, 1) + m(2, 2)};
    const auto largest = std::max_element(std::begin(squares), std::end(squares)) - std::begin(squares);
    const double twice = std::sqrt(squares[largest]);
    const double x = m(2, 1) - m(1, 2);
    const double y = m(0, 2) - m(2, 0);
    const double z = m(1, 0) - m(0, 1);
    const double xy = m(0, 1) + m(1, 0);
    const double xz = m(0, 2) + m(2, 0);
    const double yz = m(1, 2) + m(2, 1);
    const double parts[4][4] = {
        {twice * twice, x, y, z}, {x, twice * twice, xy, xz}, {y, xy, twice * twice, yz}, {z, xz, yz, twice * twice}};
    const double sign = parts[largest][0] < 0 ? -1 : 1;  // the first part is left out of the file: not negative
    const double scale = sign / (2 * twice);
    q.b = parts[largest][1] * scale;
    q.c = parts[largest][2] * scale;
    q.d = parts[largest][3] * scale;
    return q;
}

/// Fields in little endian at the offsets of a version.
class Fields {
public:
    Fields(std::size_t size, bool wide) : m_Bytes(size + kExtender, '\0'), m_bWide(wide) {}

    void Put(std::size_t at, std::int64_t value, std::size_t width) {
        for (std::size_t i = 0; i < width; ++i) m_Bytes[at + i] = static_cast<char>(value >> (8 * i));
    }
    /// 32 bits in version 1, 64 in version 2.
    void PutReal(std::size_t at, double value) {
        if (m_bWide) {
            Put(at, std::bit_cast<std::int64_t>(value), 8);
        } else {
            Put(at, std::bit_cast<std::int32_t>(static_cast<float>(value)), 4);
        }
    }
    void PutText(std::size_t at, const char* text, std::size_t size) { m_Bytes.replace(at, size, text, size); }

    std::string& Get() { return m_Bytes; }

private:
    std::string m_Bytes;
    bool m_bWide;
};

/// Where the two versions have their fields, and how wide these are.
struct Layout {
    std::size_t size, magic, dims, dimWidth, type, spacing, offset, slope, units, codes, codeWidth, quaternion, rows,
        axes, sliceEnd, sliceCode, sliceWidth, sliceDuration;
};
constexpr Layout kLayout1 = {kVersion1, 344, 40, 2, 70, 76, 108, 112, 123, 252, 2, 256, 280, 39, 120, 122, 2, 132};
constexpr Layout kLayout2 = {kVersion2, 4, 16, 8, 12, 104, 168, 176, 500, 344, 4, 352, 400, 524, 232, 496, 8, 208};

void PutPlace(Fields& fields, const Layout& layout, const VoxelGrid& grid) {
    const std::size_t real = layout.size == kVersion1 ? 4 : 8;
    std::array<Volume::Vector, 3> axes;
    for (std::size_t i = 0; i < 3; ++i) {
        axes[i] = ToRas(grid.steps[i]);
        const double length = LengthOf(axes[i]);
        for (std::size_t row = 0; row < 3; ++row) {
            fields.PutReal(layout.rows + (row * 4 + i) * real, axes[i][row]);
            axes[i][row] /= length;
        }
    }
    const Volume::Vector origin = ToRas(grid.origin);
    const int code = !grid.isPlaced ? 0 : grid.isResampled ? kAligned : kScanner;
    fields.Put(layout.codes, grid.isTilted ? 0 : code, layout.codeWidth);
    fields.Put(layout.codes + layout.codeWidth, code, layout.codeWidth);
    const Quaternion q = QuaternionOf(axes);
    fields.PutReal(layout.spacing, q.handedness);
    const double values[] = {q.b, q.c, q.d, origin[0], origin[1], origin[2]};
    for (std::size_t i = 0; i < 6; ++i) fields.PutReal(layout.quaternion + i * real, values[i]);
    for (std::size_t row = 0; row < 3; ++row) fields.PutReal(layout.rows + (row * 4 + 3) * real, origin[row]);
}

/// The order in which planes were taken, as the format numbers the usual ones; 0 for another. The first plane is 0.
int CodeOfOrder(const std::vector<double>& times) {
    std::vector<std::size_t> order(times.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&times](std::size_t a, std::size_t b) { return times[a] < times[b]; });
    // Each code: where it begins from the front or the back, and whether every second plane comes first.
    struct Order {
        int code;
        std::size_t first;
        std::size_t step;
        bool fromBack;
    };
    for (const Order& known : {Order{1, 0, 1, false}, Order{2, 0, 1, true}, Order{3, 0, 2, false}, Order{4, 0, 2, true},
                               Order{5, 1, 2, false}, Order{6, 1, 2, true}}) {
        std::vector<std::size_t> expected;
        for (const std::size_t first : {known.first, 1 - known.first}) {
            for (std::size_t i = known.step == 1 ? 0 : first; i < times.size(); i += known.step) expected.push_back(i);
            if (known.step == 1) break;
        }
        if (known.fromBack) {
            for (std::size_t& plane : expected) plane = times.size() - 1 - plane;
        }
        if (expected == order) return known.code;
    }
    return 0;
}

/// Planes taken at the same time (several at once) have no order that the format could say, but its axes.
void PutAcquisition(Fields& fields, const Layout& layout, const VoxelGrid& grid) {
    constexpr int kSliceAxis = 3;  // counted from 1
    if (grid.phaseAxis >= 0)
        fields.Put(layout.axes, (2 - grid.phaseAxis) | (grid.phaseAxis + 1) << 2 | kSliceAxis << 4, 1);
    std::vector<double> times = grid.sliceTimes;
    if (times.size() < 2 || times.size() != grid.size[2]) return;
    const int code = CodeOfOrder(times);
    std::sort(times.begin(), times.end());
    if (code == 0 || std::adjacent_find(times.begin(), times.end()) != times.end()) return;
    if (grid.phaseAxis < 0) fields.Put(layout.axes, kSliceAxis << 4, 1);
    fields.Put(layout.sliceEnd, static_cast<std::int64_t>(times.size()) - 1, layout.sliceWidth);
    fields.Put(layout.sliceCode, code, layout.sliceWidth == 2 ? 1 : 4);
    fields.PutReal(layout.sliceDuration, times.back() / static_cast<double>(times.size() - 1));
}

}  // namespace

std::string MakeNiftiHeader(const VoxelGrid& grid) {
    const bool wide = *std::max_element(grid.size.begin(), grid.size.end()) > std::numeric_limits<std::int16_t>::max();
    const Layout& layout = wide ? kLayout2 : kLayout1;
    const std::size_t real = wide ? 8 : 4;
    Fields fields(layout.size, wide);
    fields.Put(0, static_cast<std::int64_t>(layout.size), 4);
    if (wide) {
        fields.PutText(layout.magic, "n+2\0\r\n\032\n", 8);
    } else {
        fields.PutText(layout.magic, "n+1\0", 4);
        fields.PutText(38, "r", 1);  // "regular", which older readers look for
    }
    const std::size_t count = grid.size[3] > 1 ? 4 : 3;
    fields.Put(layout.dims, static_cast<std::int64_t>(count), layout.dimWidth);
    for (std::size_t i = 1; i < 8; ++i) {
        fields.Put(layout.dims + i * layout.dimWidth, i <= 4 ? static_cast<std::int64_t>(grid.size[i - 1]) : 1,
                   layout.dimWidth);
    }
    fields.Put(layout.type, CodeOf(grid.type), 2);
    fields.Put(layout.type + 2, static_cast<std::int64_t>(8 * SizeOf(grid.type)), 2);
    PutPlace(fields, layout, grid);
    for (std::size_t i = 0; i < 3; ++i) fields.PutReal(layout.spacing + (i + 1) * real, LengthOf(grid.steps[i]));
    fields.PutReal(layout.spacing + 4 * real, grid.size[3] > 1 ? grid.timeStep : 0);
    if (wide) {
        fields.Put(layout.offset, static_cast<std::int64_t>(layout.size + kExtender), 8);
    } else {
        fields.PutReal(layout.offset, static_cast<double>(layout.size + kExtender));
    }
    fields.PutReal(layout.slope, grid.rescale.slope);
    fields.PutReal(layout.slope + real, grid.rescale.intercept);
    PutAcquisition(fields, layout, grid);
    fields.Put(layout.units, kMillimetresAndSeconds, wide ? 4 : 1);
    return std::move(fields.Get());
}

}  // namespace korvane
