#include "DcmObliqueSlice.h"

#include "PatientFrame.h"
#include "PlaneOffsets.h"
#include "SlicePlan.h"
#include "ViewAxes.h"
#include "base/Integer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <optional>
#include <utility>
#include <vector>

namespace {

using korvane_detail::Cross;
using korvane_detail::Dot;
using korvane_detail::GetSampleBytes;
using korvane_detail::GreyWindow;
using korvane_detail::KeptLayers;
using korvane_detail::PatientFrame;
using korvane_detail::PlaneOffset;
using korvane_detail::PlaneOffsets;
using korvane_detail::Sampling;
using korvane_detail::SlabRow;
using korvane_detail::SliceGrid;
using korvane_detail::SlicePlan;
using korvane_detail::SliceTables;
using korvane_detail::SliceView;
using korvane_detail::Times;
using Vector = DcmObliqueSlice::Vector;

// Directions shorter than this have none, and the sine between parallel ones is not above kParallel.
constexpr double kNoDirection = 1e-9;
constexpr double kParallel = 1e-6;

// Of one pixel, through a slab and over its area.
constexpr std::int64_t kMostSamples = 1 << 20;

constexpr const char* kManyLayers = "slab of too many samples";
constexpr const char* kNoRoom = "too little memory for the slice's pixels";

/// a + s * b
Vector Add(const Vector& a, double s, const Vector& b) {
    return {a[0] + s * b[0], a[1] + s * b[1], a[2] + s * b[2]};
}

bool IsUsable(const Vector& v) {
    return std::all_of(v.begin(), v.end(), [](double c) { return std::fabs(c) <= DcmObliqueSlice::kLargestLength; });
}

/// Unit length; false, and the vector stays, when it has no direction.
bool Normalise(Vector& v) {
    const double length = std::sqrt(Dot(v, v));
    if (!IsUsable(v) || !(length >= kNoDirection)) {
        return false;
    }
    v = Times(v, 1 / length);
    return true;
}

/// Unit vectors at right angles; row keeps its direction.
bool Orthonormalise(Vector& row, Vector& column) {
    Vector a = row;
    Vector b = column;
    if (!Normalise(a) || !Normalise(b)) {
        return false;
    }
    b = Add(b, -Dot(a, b), a);
    if (!(Dot(b, b) > kParallel * kParallel) || !Normalise(b)) {
        return false;
    }
    // The difference of nearly parallel vectors is short, and rounding along `a` is large beside it: once more.
    b = Add(b, -Dot(a, b), a);
    Normalise(b);
    row = a;
    column = b;
    return true;
}

/// The volume's place in the patient; without a usable one, the axes themselves.
PatientFrame ReadFrame(CVolume* volume) {
    PatientFrame frame;
    if (volume == nullptr || !frame.Read(*volume)) {
        frame = PatientFrame();
    }
    return frame;
}

double FirstPlaneZ(CVolume* volume) {
    return volume != nullptr && volume->GetPlaneCount() > 0 ? volume->GetPlane(0)->m_Org[2] : 0.0;
}

/// Sideways offsets of the planes; none without a volume.
PlaneOffsets ReadOffsets(CVolume* volume) {
    PlaneOffsets offsets;
    if (volume != nullptr) offsets.Read(*volume);
    return offsets;
}

/// A point of the volume frame in millimetres along the volume's axes, and back: the same but for the offset at its z.
Vector Straighten(const PlaneOffsets& offsets, const Vector& point) {
    const PlaneOffset offset = offsets.At(point[2]);
    return {point[0] + offset.m_X, point[1] + offset.m_Y, point[2]};
}

Vector Shear(const PlaneOffsets& offsets, const Vector& point) {
    const PlaneOffset offset = offsets.At(point[2]);
    return {point[0] - offset.m_X, point[1] - offset.m_Y, point[2]};
}

Vector ToPatient(const PatientFrame& frame, const Vector& v) {
    return Add(Add(Times(frame.m_Row, v[0]), v[1], frame.m_Column), -v[2], frame.m_Normal);
}

/// One axis of the volume as an orthogonal picture samples it.
struct SampledAxis {
    Vector m_Direction;
    double m_Spacing;
    int m_Count;
};

// Along z the samples of the volume's table.
SampledAxis SampleZ(CVolume& volume, const float* space) {
    const double last =
        static_cast<double>(volume.GetPlane(volume.GetPlaneCount() - 1)->m_Org[2]) - volume.GetPlane(0)->m_Org[2];
    const float voxel = (space[0] + space[1]) * 0.5F;
    const int steps = platform::TruncateToInt32(std::fabs(last) / voxel);
    const double spacing = steps > 0 ? std::fabs(last) / steps : voxel;
    return {{0, 0, last < 0 ? -1.0 : 1.0}, spacing, platform::WrapAdd(steps, 1)};
}

SampledAxis SampleAxis(CVolume& volume, int axis) {
    float space[4];
    int dim[4];
    volume.GetSpacing(space);
    volume.GetDimensions(dim);
    if (axis == 2) {
        return SampleZ(volume, space);
    }
    Vector direction = {0, 0, 0};
    direction[static_cast<std::size_t>(axis)] = 1;
    return {direction, space[axis], dim[axis]};
}

/// Millimetres along the axis of a voxel index with a fraction.
double PositionAt(CVolume& volume, int axis, double index) {
    if (axis < 2) {
        return index * SampleAxis(volume, axis).m_Spacing;
    }
    const int low = platform::TruncateToInt32(index);
    const int high = std::min(low + 1, volume.GetPlaneCount() - 1);
    const double first = volume.GetPlane(0)->m_Org[2];
    const double lowZ = volume.GetPlane(low)->m_Org[2] - first;
    const double highZ = volume.GetPlane(high)->m_Org[2] - first;
    return lowZ + (highZ - lowZ) * (index - low);
}

/// Makes an axis within the planes, x (0) or y (1), long enough for what the offsets move along it, and moves the centre
/// of the picture, which has its z already, to the middle.
void Widen(SampledAxis& axis, int number, const PlaneOffsets& offsets, Vector& centre) {
    const auto along = [number](const PlaneOffset& offset) { return number == 0 ? offset.m_X : offset.m_Y; };
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (const PlaneOffsets::Knot& knot : offsets.GetKnots()) {
        low = std::min(low, along(knot.m_Offset));
        high = std::max(high, along(knot.m_Offset));
    }
    const auto extent = korvane_detail::FindStraightExtent(along(offsets.At(0)), low, high, axis.m_Spacing);
    axis.m_Count = platform::WrapAdd(axis.m_Count, extent.m_More);
    centre[static_cast<std::size_t>(number)] =
        extent.m_First + (axis.m_Count - 1) * axis.m_Spacing / 2 - along(offsets.At(centre[2]));
}

/// The layers of a slab, both faces among them; of a plain slice there is one.
struct Layers {
    int m_Count = 1;
    double m_Step = 0;

    /// False where there would be too many. A step of 0 is the volume's smallest spacing.
    bool Divide(double thickness, double wanted, const SliceTables& tables) {
        if (!(thickness > 0)) return true;
        const double step = wanted > 0 ? wanted : tables.GetSmallestSpacing();
        const double steps = std::max(std::ceil(thickness / step - 1e-9), 1.0);
        if (steps > DcmObliqueSlice::kLargestSlab - 1) {
            return false;
        }
        m_Count = static_cast<int>(steps) + 1;
        m_Step = thickness / steps;
        return true;
    }
};

/// Of layers that `slice` samples from a usable volume.
KeptLayers::Form FormOf(const DcmObliqueSlice& slice, const std::array<double, 3>& padding, int layers) {
    const auto sampling = static_cast<Sampling>(slice.GetInterpolation());
    return {slice.GetVolume(),
            sampling,
            {padding[0], padding[1]},
            slice.GetWidth(),
            slice.GetHeight(),
            layers,
            static_cast<std::size_t>(GetSampleBytes(sampling, slice.GetVolume()->GetTypeSize()))};
}

}  // namespace

DcmObliqueSlice::DcmObliqueSlice() = default;

DcmObliqueSlice::DcmObliqueSlice(CVolume* volume) {
    SetVolume(volume);
}

DcmObliqueSlice::DcmObliqueSlice(const DcmObliqueSlice& other) {
    *this = other;
}

DcmObliqueSlice& DcmObliqueSlice::operator=(const DcmObliqueSlice& other) {
    SetVolume(other.m_pVolume);
    m_Centre = other.m_Centre;
    m_Row = other.m_Row;
    m_Column = other.m_Column;
    m_PixelSize = other.m_PixelSize;
    m_Width = other.m_Width;
    m_Height = other.m_Height;
    m_Interpolation = other.m_Interpolation;
    m_SlabMode = other.m_SlabMode;
    m_SlabThickness = other.m_SlabThickness;
    m_SlabStep = other.m_SlabStep;
    m_Background = other.m_Background;
    m_bWide = other.m_bWide;
    m_bAreaAverage = other.m_bAreaAverage;
    m_Padding = other.m_Padding;
    m_Error = other.m_Error;
    return *this;
}

DcmObliqueSlice::~DcmObliqueSlice() {
    SetVolume(nullptr);
}

void DcmObliqueSlice::SetVolume(CVolume* volume) {
    if (volume != nullptr) volume->AddRef();
    if (m_pVolume != nullptr) m_pVolume->Delete();
    m_pVolume = volume;
}

bool DcmObliqueSlice::Fail(const char* what) {
    m_Error = what;
    return false;
}

bool DcmObliqueSlice::SetPlane(const Vector& centre, const Vector& row, const Vector& column) {
    Vector a = row;
    Vector b = column;
    if (!IsUsable(centre)) {
        return Fail("slice centre out of range");
    }
    if (!Orthonormalise(a, b)) {
        return Fail("slice directions that are parallel or have no length");
    }
    m_Centre = centre;
    m_Row = a;
    m_Column = b;
    return true;
}

bool DcmObliqueSlice::SetPlaneByNormal(const Vector& centre, const Vector& normal, const Vector& up) {
    Vector away = normal;
    Vector down = Times(up, -1);
    if (!Orthonormalise(away, down)) {
        return Fail("slice normal and up direction that are parallel or have no length");
    }
    return SetPlane(centre, Cross(down, away), down);
}

bool DcmObliqueSlice::SetCentre(const Vector& centre) {
    return SetPlane(centre, m_Row, m_Column);
}

bool DcmObliqueSlice::Rotate(const Vector& axis, double degrees) {
    Vector around = axis;
    if (!Normalise(around) || !std::isfinite(degrees)) {
        return Fail("rotation without an axis or an angle");
    }
    const double angle = std::fmod(degrees, 360.0) * std::numbers::pi / 180;
    const auto turn = [&](const Vector& v) {  // Rodrigues
        const Vector along = Times(around, Dot(around, v));
        return Add(Add(along, std::cos(angle), Add(v, -1, along)), std::sin(angle), Cross(around, v));
    };
    return SetPlane(m_Centre, turn(m_Row), turn(m_Column));
}

bool DcmObliqueSlice::Move(double millimetres) {
    const PlaneOffsets offsets = ReadOffsets(m_pVolume);
    return SetCentre(Shear(offsets, Add(Straighten(offsets, m_Centre), millimetres, GetNormal())));
}

bool DcmObliqueSlice::SetPixelSize(double alongRow, double alongColumn) {
    for (const double size : {alongRow, alongColumn}) {
        if (!(size >= kSmallestLength && size <= kLargestLength)) return Fail("slice pixel size out of range");
    }
    m_PixelSize = {alongRow, alongColumn};
    return true;
}

bool DcmObliqueSlice::SetSize(int width, int height) {
    if (width < 1 || height < 1 || width > kLargestSize || height > kLargestSize) {
        return Fail("slice size out of range");
    }
    m_Width = width;
    m_Height = height;
    return true;
}

bool DcmObliqueSlice::SetInterpolation(Interpolation interpolation) {
    if (interpolation < IP_NEAREST || interpolation > IP_CUBIC) {
        return Fail("unknown interpolation");
    }
    m_Interpolation = interpolation;
    return true;
}

bool DcmObliqueSlice::SetSlab(SlabMode mode, double thickness, double step) {
    const bool known = mode >= SM_NONE && mode <= SM_MINIMUM;
    if (!known || !(thickness >= 0 && thickness <= kLargestLength) || !(step == 0 || step >= kSmallestLength)) {
        return Fail("slab out of range");
    }
    if (step > 0 && thickness / step > kLargestSlab - 1) {
        return Fail("slab of too many samples");
    }
    m_SlabMode = mode;
    m_SlabThickness = thickness;
    m_SlabStep = step;
    return true;
}

void DcmObliqueSlice::SetPadding(double low, double high, double value) {
    m_Padding = {low, high, value};
}

bool DcmObliqueSlice::SetOrthogonal(VolumePlane plane, double index, bool flip1, bool flip2) {
    ViewAxes axes;
    if (!FindViewAxes(plane, axes)) {
        return Fail("unknown view plane");
    }
    if (m_pVolume == nullptr) {
        return Fail("slice without a volume");
    }
    if (const char* failure = SliceTables().Read(*m_pVolume)) {
        return Fail(failure);
    }
    int dim[4];
    m_pVolume->GetDimensions(dim);
    if (!(index >= 0 && index <= dim[axes.m_Slice] - 1)) {
        return Fail("slice index outside the volume");
    }
    SampledAxis across[2] = {SampleAxis(*m_pVolume, axes.m_Horizontal), SampleAxis(*m_pVolume, axes.m_Vertical)};
    Vector centre = {0, 0, 0};
    centre[static_cast<std::size_t>(axes.m_Slice)] = PositionAt(*m_pVolume, axes.m_Slice, index);
    for (SampledAxis& axis : across) centre = Add(centre, (axis.m_Count - 1) * axis.m_Spacing / 2, axis.m_Direction);
    const PlaneOffsets offsets = ReadOffsets(m_pVolume);
    if (axes.m_Slice != 2 && !offsets.IsUpright()) {
        const int inPlane = axes.m_Horizontal == 2 ? axes.m_Vertical : axes.m_Horizontal;
        Widen(across[inPlane == axes.m_Horizontal ? 0 : 1], inPlane, offsets, centre);
    }
    const auto directed = [](const SampledAxis& axis, bool flip) { return Times(axis.m_Direction, flip ? -1 : 1); };
    DcmObliqueSlice next(*this);
    if (!next.SetSize(across[0].m_Count, across[1].m_Count) ||
        !next.SetPixelSize(across[0].m_Spacing, across[1].m_Spacing) ||
        !next.SetPlane(centre, directed(across[0], flip1), directed(across[1], flip2))) {
        return Fail(next.GetError().c_str());
    }
    *this = next;
    return true;
}

Vector DcmObliqueSlice::GetNormal() const {
    return Cross(m_Row, m_Column);
}

std::size_t DcmObliqueSlice::GetPixelCount() const {
    const std::uint64_t count = static_cast<std::uint64_t>(m_Width) * static_cast<std::uint64_t>(m_Height);
    return static_cast<std::size_t>(std::min<std::uint64_t>(count, std::numeric_limits<std::size_t>::max()));
}

FPlane DcmObliqueSlice::GetPlane() const {
    const Vector n = GetNormal();
    return {static_cast<float>(n[0]), static_cast<float>(n[1]), static_cast<float>(n[2]),
            static_cast<float>(-Dot(n, Straighten(ReadOffsets(m_pVolume), m_Centre)))};
}

Vector DcmObliqueSlice::PixelToVol(double column, double row) const {
    const PlaneOffsets offsets = ReadOffsets(m_pVolume);
    return Shear(offsets, StraightPixel(Straighten(offsets, m_Centre), column, row));
}

// `centre` and the result in millimetres along the volume's axes.
Vector DcmObliqueSlice::StraightPixel(const Vector& centre, double column, double row) const {
    const Vector across = Add(centre, (column - (m_Width - 1) / 2.0) * m_PixelSize[0], m_Row);
    return Add(across, (row - (m_Height - 1) / 2.0) * m_PixelSize[1], m_Column);
}

Vector DcmObliqueSlice::VolToDicom(const Vector& point) const {
    const Vector straight = Straighten(ReadOffsets(m_pVolume), point);
    return ReadFrame(m_pVolume).GetPoint(straight[0], straight[1], straight[2] + FirstPlaneZ(m_pVolume));
}

Vector DcmObliqueSlice::DicomToVol(const Vector& point) const {
    const PatientFrame frame = ReadFrame(m_pVolume);
    return Shear(ReadOffsets(m_pVolume), frame.ToAxes(Add(point, -1, frame.GetPoint(0, 0, FirstPlaneZ(m_pVolume)))));
}

Vector DcmObliqueSlice::DirectionToDicom(const Vector& direction) const {
    return ToPatient(ReadFrame(m_pVolume), direction);
}

Vector DcmObliqueSlice::DirectionToVol(const Vector& direction) const {
    return ReadFrame(m_pVolume).ToAxes(direction);
}

// The sink is an object with
//     const char* Begin(const SliceView& view)       null, or why it cannot take the picture
//     unsigned char* GetRows(int first)              where rows from this one on are to go, counted from `firstRow`
//     void TakeRows(int first, int count)            they are there
template <typename Sink>
bool DcmObliqueSlice::Sample(int firstRow, int rows, Sink sink, SlabLayers* layers) {
    if (m_pVolume == nullptr) {
        return Fail("slice without a volume");
    }
    if (firstRow < 0 || rows < 1 || rows > m_Height - firstRow) {
        return Fail("rows outside the slice");
    }
    SliceTables tables;
    const char* failure = tables.Read(*m_pVolume);
    if (failure == nullptr) failure = sink.Begin(tables.GetView());
    if (failure != nullptr) {
        return Fail(failure);
    }
    Layers slab;
    if (m_SlabMode != SM_NONE && !slab.Divide(m_SlabThickness, m_SlabStep, tables)) {
        return Fail(kManyLayers);
    }
    const double layerStep = slab.m_Step;
    const Vector normal = GetNormal();
    const Vector centre = Straighten(tables.GetOffsets(), m_Centre);
    const Vector corner = Add(StraightPixel(centre, 0, 0), -layerStep * (slab.m_Count - 1) / 2, normal);
    SliceGrid grid = {{}, {}, {}, {}, m_Width, m_Height, slab.m_Count};
    SlicePlan plan(tables);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        grid.m_Origin[axis] = corner[axis];
        grid.m_PerPixel[axis] = m_Row[axis] * m_PixelSize[0];
        grid.m_PerRow[axis] = m_Column[axis] * m_PixelSize[1];
        grid.m_PerLayer[axis] = normal[axis] * layerStep;
    }
    if (m_bAreaAverage) {
        grid.m_Across = plan.CountParts(grid.m_PerPixel);
        grid.m_Down = plan.CountParts(grid.m_PerRow);
        if (std::int64_t{slab.m_Count} * grid.m_Across * grid.m_Down > kMostSamples) {
            return Fail("pixels of too many samples");
        }
    }
    plan.SetGrid(grid);
    plan.SetKernel(static_cast<Sampling>(m_Interpolation), m_bWide);
    plan.SetBackground(m_Background);
    if (m_Padding[0] <= m_Padding[1]) plan.SetPadding({m_Padding[0], m_Padding[1]}, m_Padding[2]);
    if (slab.m_Count > 1) {
        plan.SetSlab(static_cast<SlabRow::Mode>(m_SlabMode - SM_MEAN));
        const bool isPlain = grid.m_Across == 1 && grid.m_Down == 1;
        if (layers != nullptr && isPlain && layers->m_pKept->IsFor(FormOf(*this, m_Padding, slab.m_Count))) {
            plan.SetKept(layers->m_pKept.get());
        }
    } else if (grid.m_Across > 1 || grid.m_Down > 1) {
        plan.SetSlab(SlabRow::kMean);
    }
    for (int first = 0; first < rows; first += SlicePlan::kBand) {
        const int count = std::min(SlicePlan::kBand, rows - first);
        plan.SampleRows(firstRow + first, count, sink.GetRows(first));
        sink.TakeRows(first, count);
    }
    return true;
}

bool DcmObliqueSlice::GetPixels(void* pixels, std::size_t bytes) {
    return GetPixelRows(0, m_Height, pixels, bytes);
}

bool DcmObliqueSlice::PrepareLayers(SlabLayers& layers) {
    if (m_pVolume == nullptr) {
        return Fail("slice without a volume");
    }
    SliceTables tables;
    if (const char* failure = tables.Read(*m_pVolume)) {
        return Fail(failure);
    }
    Layers slab;
    if (m_SlabMode != SM_NONE && !slab.Divide(m_SlabThickness, m_SlabStep, tables)) {
        return Fail(kManyLayers);
    }
    const KeptLayers::Form form = FormOf(*this, m_Padding, slab.m_Count);
    if (slab.m_Count < 2 || m_bAreaAverage || KeptLayers::CountBytes(form) > static_cast<double>(layers.GetMost())) {
        layers.Clear();
    } else {
        layers.m_pKept->Prepare(form, Straighten(tables.GetOffsets(), m_Centre), GetNormal(), slab.m_Step);
    }
    return true;
}

bool DcmObliqueSlice::GetPixelRows(int first, int count, void* pixels, std::size_t bytes) {
    return SampleRows(first, count, pixels, bytes, nullptr);
}

bool DcmObliqueSlice::GetPixelRows(int first, int count, void* pixels, std::size_t bytes, SlabLayers& layers) {
    return SampleRows(first, count, pixels, bytes, &layers);
}

bool DcmObliqueSlice::SampleRows(int firstRow, int rows, void* pixels, std::size_t bytes, SlabLayers* layers) {
    struct Sink {
        unsigned char* m_pPixels;
        std::size_t m_Bytes;
        std::size_t m_Width;
        std::size_t m_Rows;
        std::size_t m_RowBytes;

        const char* Begin(const SliceView& view) {
            m_RowBytes = m_Width * static_cast<std::size_t>(view.m_Size);
            return m_pPixels == nullptr || m_Bytes / m_RowBytes < m_Rows ? kNoRoom : nullptr;
        }
        unsigned char* GetRows(int first) const { return m_pPixels + static_cast<std::size_t>(first) * m_RowBytes; }
        void TakeRows(int /*first*/, int /*count*/) const {}
    };
    return Sample(firstRow, rows,
                  Sink{static_cast<unsigned char*>(pixels), bytes, static_cast<std::size_t>(m_Width),
                       static_cast<std::size_t>(rows), 0},
                  layers);
}

bool DcmObliqueSlice::GetPixelStack(void* pixels, std::size_t bytes, int count, double step) {
    if (m_pVolume == nullptr) {
        return Fail("slice without a volume");
    }
    const int size = m_pVolume->GetTypeSize();
    const std::size_t most = std::numeric_limits<std::size_t>::max() / static_cast<std::size_t>(std::max(size, 1));
    if (count < 1 || !std::isfinite(step)) {
        return Fail("slice stack out of range");
    }
    if (size < 1) {
        return Fail("volume of an unknown pixel type");
    }
    const std::size_t picture = std::min(GetPixelCount(), most) * static_cast<std::size_t>(size);
    if (pixels == nullptr || bytes / picture < static_cast<std::size_t>(count)) {
        return Fail(kNoRoom);
    }
    DcmObliqueSlice slice(*this);
    for (int n = 0; n < count; ++n) {
        slice.m_Centre = m_Centre;
        if (!slice.Move(n * step) || !slice.GetPixels(static_cast<unsigned char*>(pixels) + n * picture, picture)) {
            return Fail(slice.GetError().c_str());
        }
    }
    return true;
}

bool DcmObliqueSlice::GetPicture(unsigned char* pixels, std::size_t bytes, double centre, double width) {
    return GetPictureRows(0, m_Height, pixels, bytes, centre, width);
}

bool DcmObliqueSlice::GetPictureRows(int first, int count, unsigned char* pixels, std::size_t bytes, double centre,
                                     double width) {
    return SamplePicture(first, count, pixels, bytes, centre, width, nullptr);
}

bool DcmObliqueSlice::GetPictureRows(int first, int count, unsigned char* pixels, std::size_t bytes, double centre,
                                     double width, SlabLayers& layers) {
    return SamplePicture(first, count, pixels, bytes, centre, width, &layers);
}

bool DcmObliqueSlice::SamplePicture(int firstRow, int rows, unsigned char* pixels, std::size_t bytes, double centre,
                                    double width, SlabLayers* layers) {
    struct Sink {
        unsigned char* m_pPixels;
        std::size_t m_Width;
        std::size_t m_Rows;
        std::size_t m_Bytes;
        double m_Centre;
        double m_WindowWidth;
        std::optional<GreyWindow> m_Window = {};
        std::vector<unsigned char> m_Band = {};

        const char* Begin(const SliceView& view) {
            const bool hasWidth = view.m_Type == CVolume::PT_FLOAT ? m_WindowWidth > 0 : m_WindowWidth >= 1;
            if (!hasWidth || !std::isfinite(m_WindowWidth) || !std::isfinite(m_Centre)) {
                return "window out of range";
            }
            if (m_pPixels == nullptr || m_Bytes / m_Width < m_Rows) {
                return kNoRoom;
            }
            m_Window.emplace(view.m_Type, m_Centre, m_WindowWidth);
            m_Band.resize(std::min<std::size_t>(SlicePlan::kBand, m_Rows) * m_Width *
                          static_cast<std::size_t>(view.m_Size));
            return nullptr;
        }
        unsigned char* GetRows(int /*first*/) { return m_Band.data(); }
        void TakeRows(int first, int count) const {
            const int pixelCount = count * static_cast<int>(m_Width);
            m_Window->Map(m_Band.data(), pixelCount, m_pPixels + static_cast<std::size_t>(first) * m_Width);
        }
    };
    return Sample(firstRow, rows,
                  Sink{pixels, static_cast<std::size_t>(m_Width), static_cast<std::size_t>(rows), bytes, centre, width},
                  layers);
}
