#include "SliceGrid.h"

#include "../core/Error.h"
#include "../study/SeriesFindings.h"

#include "slicing/ViewAxes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace korvane {

namespace {

using Vector = DcmObliqueSlice::Vector;

constexpr double kLargestSide = 32767;      // pixels
constexpr double kMostPixels = 1 << 28;     // 256 MB, or twice that for 16 bits
constexpr double kRoundingOfPixels = 1e-4;  // spacings are single precision
constexpr double kOnPlane = 1e-4;           // millimetres

double Dot(const Vector& a, const Vector& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

Vector Plus(const Vector& a, const Vector& b) {
    return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}

Vector Times(const Vector& v, double factor) {
    return {v[0] * factor, v[1] * factor, v[2] * factor};
}

Vector Minus(const Vector& a, const Vector& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

Vector Cross(const Vector& a, const Vector& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

/// Zeros for what is shorter than a millionth: as good as no direction.
Vector UnitOf(const Vector& v) {
    const double length = std::hypot(v[0], v[1], v[2]);
    return length > 1e-6 ? Vector{v[0] / length, v[1] / length, v[2] / length} : Vector{0, 0, 0};
}

void SetPixels(DcmObliqueSlice& slice, double width, double height, double pixelSize, const SliceOptions& options) {
    if (options.frame) {
        width = (*options.frame)[0];
        height = (*options.frame)[1];
        if (width < 1 || height < 1 || options.size != 0 || options.zoom != 0) {
            throw Error(ErrorKind::WrongArgument,
                        "a frame has at least one pixel along each side, and neither a size nor a zoom beside it");
        }
    }
    if (width > kLargestSide || height > kLargestSide || width * height > kMostPixels) {
        throw Error(ErrorKind::Unsupported, "the picture would have " + ShortNumber(width) + " x " +
                                                ShortNumber(height) + " pixels of " + ShortNumber(pixelSize) +
                                                " mm; --pixel makes them larger");
    }
    if (!slice.SetPixelSize(pixelSize, pixelSize) ||
        !slice.SetSize(static_cast<int>(width), static_cast<int>(height))) {
        throw Error(ErrorKind::WrongArgument, slice.GetError());
    }
}

/// From the first voxel centre to the last along each axis of the volume frame.
struct Box {
    Vector low = {0, 0, 0};
    Vector high = {0, 0, 0};
    std::vector<double> levels;  // of all planes along z, ascending
    bool isUpright = true;       // no plane lies sideways of another

    explicit Box(CVolume& volume) {
        int dim[4];
        float space[4];
        volume.GetDimensions(dim);
        volume.GetSpacing(space);
        high = {(dim[0] - 1) * static_cast<double>(space[0]), (dim[1] - 1) * static_cast<double>(space[1]), 0};
        for (int plane = 0; plane < dim[2]; ++plane) {
            const float* const origin = volume.GetPlane(plane)->m_Org;
            const float* const first = volume.GetPlane(0)->m_Org;
            levels.push_back(static_cast<double>(origin[2]) - first[2]);
            isUpright = isUpright && origin[0] == first[0] && origin[1] == first[1];
        }
        std::sort(levels.begin(), levels.end());
        low[2] = levels.front();
        high[2] = levels.back();
    }

    Vector Middle() const { return {(low[0] + high[0]) / 2, (low[1] + high[1]) / 2, (low[2] + high[2]) / 2}; }
};

/// How far the cut of a plane through a stack reaches from the picture's middle, in patient millimetres: planes may lie
/// sideways of each other. False when there is none.
class Cut {
public:
    explicit Cut(const DcmObliqueSlice& slice)
        : m_Slice(slice), m_Centre(slice.VolToDicom(slice.GetCentre())), m_Row(slice.DirectionToDicom(slice.GetRow())),
          m_Column(slice.DirectionToDicom(slice.GetColumn())), m_Normal(slice.DirectionToDicom(slice.GetNormal())) {}

    bool Find(const Box& box) {
        const Vector along = Times(m_Slice.DirectionToDicom({1, 0, 0}), box.high[0]);
        const Vector across = Times(m_Slice.DirectionToDicom({0, 1, 0}), box.high[1]);
        // The slice's own map looks at all planes for each point.
        const Vector corner = Minus(m_Slice.VolToDicom({0, 0, 0}), m_Centre);
        const Vector upward = m_Slice.DirectionToDicom({0, 0, 1});
        std::array<Vector, 4> below;
        for (std::size_t level = 0; level < box.levels.size(); ++level) {
            const double z = box.levels[level];
            const Vector first =
                box.isUpright ? Plus(corner, Times(upward, z)) : Minus(m_Slice.VolToDicom({0, 0, z}), m_Centre);
            const std::array<Vector, 4> corners = {first, Plus(first, along), Plus(Plus(first, along), across),
                                                   Plus(first, across)};
            for (std::size_t i = 0; i < 4; ++i) {
                AddEdge(corners[i], corners[(i + 1) % 4]);
                if (level > 0) AddEdge(below[i], corners[i]);
            }
            below = corners;
        }
        return m_bMet;
    }

    double GetAlongRow() const { return m_AlongRow; }
    double GetAlongColumn() const { return m_AlongColumn; }

private:
    void AddEdge(const Vector& from, const Vector& to) {
        const double a = Distance(from);
        const double b = Distance(to);
        if (a == 0) Add(from);
        if (b == 0) Add(to);
        if ((a < 0 && b > 0) || (a > 0 && b < 0)) {
            const double t = a / (a - b);
            Add({from[0] + t * (to[0] - from[0]), from[1] + t * (to[1] - from[1]), from[2] + t * (to[2] - from[2])});
        }
    }

    double Distance(const Vector& point) const {
        const double distance = Dot(point, m_Normal);
        return std::fabs(distance) <= kOnPlane ? 0 : distance;
    }

    void Add(const Vector& point) {
        m_bMet = true;
        m_AlongRow = std::max(m_AlongRow, std::fabs(Dot(point, m_Row)));
        m_AlongColumn = std::max(m_AlongColumn, std::fabs(Dot(point, m_Column)));
    }

    const DcmObliqueSlice& m_Slice;
    Vector m_Centre;
    Vector m_Row;
    Vector m_Column;
    Vector m_Normal;
    bool m_bMet = false;
    double m_AlongRow = 0;
    double m_AlongColumn = 0;
};

/// Which way radiologists look at a plane, by the patient plane that it is nearest to.
void TakeUsualSide(PatientPlane& plane) {
    const Vector& n = plane.normal;
    const Vector size = {std::fabs(n[0]), std::fabs(n[1]), std::fabs(n[2])};
    const bool axial = size[2] > size[0] && size[2] > size[1];
    const bool sagittal = !axial && size[0] > size[1];
    if (!plane.up) plane.up = axial ? Vector{0, -1, 0} : Vector{0, 0, 1};
    // Away from the viewer: to the head in axial pictures, to the back in coronal ones, to the right in sagittal ones.
    const bool turned = axial ? n[2] < 0 : sagittal ? n[0] > 0 : n[1] < 0;
    if (turned) plane.normal = {-n[0], -n[1], -n[2]};
}

}  // namespace

VolumeView FindView(CVolume& volume, View wanted) {
    constexpr DcmOrientation::OrthoPlane kPlanes[] = {DcmOrientation::OP_AXIAL, DcmOrientation::OP_CORONAL,
                                                      DcmOrientation::OP_SAGITTAL};
    VolumeView view;
    RadiologicalView(volume, kPlanes[static_cast<int>(wanted)],
                     view.raw);  // a volume without an orientation is shown as an axial one
    int dim[4];
    volume.GetDimensions(dim);
    ViewAxes axes;
    FindViewAxes(view.raw.m_Plane, axes);
    view.axis = axes.m_Slice;
    view.count = dim[view.axis];
    return view;
}

void PlaceView(DcmObliqueSlice& slice, const VolumeView& view, int index, const SliceOptions& options) {
    if (!slice.SetOrthogonal(view.raw.m_Plane, index, view.raw.m_bFlip1, view.raw.m_bFlip2)) {
        throw Error(ErrorKind::WrongArgument, slice.GetError());
    }
    // What the slicer takes for z is the volume's table; the picture is to have the planes' own distance. Along the others it
    // is as wide as planes that lie sideways of each other need.
    CVolume& volume = *slice.GetVolume();
    const Box box(volume);
    int dim[4];
    volume.GetDimensions(dim);
    ViewAxes axes;
    FindViewAxes(view.raw.m_Plane, axes);
    double size[2];
    double smallest = HUGE_VAL;
    const int inPicture[2] = {axes.m_Horizontal, axes.m_Vertical};
    for (int i = 0; i < 2; ++i) {
        const bool isDepth = inPicture[i] == 2;
        const double pixel = slice.GetPixelSize()[static_cast<std::size_t>(i)];
        size[i] = isDepth ? box.high[2] - box.low[2] : ((i == 0 ? slice.GetWidth() : slice.GetHeight()) - 1) * pixel;
        if (size[i] > 0) smallest = std::min(smallest, isDepth ? size[i] / (dim[2] - 1) : pixel);
    }
    if (options.pixelSize > 0) smallest = options.pixelSize;
    if (smallest == HUGE_VAL) smallest = slice.GetPixelSize()[0];
    SetPixels(slice, std::floor(size[0] / smallest + kRoundingOfPixels) + 1,
              std::floor(size[1] / smallest + kRoundingOfPixels) + 1, smallest, options);
}

double PlacePlanes(DcmObliqueSlice& slice, const SliceOptions& options) {
    constexpr int kMostPlanes = 4096;
    if (options.count < 1 || options.count > kMostPlanes || (options.count > 1 && options.step == 0) ||
        !std::isfinite(options.step)) {
        throw Error(ErrorKind::WrongArgument, "a stack has 1 to " + std::to_string(kMostPlanes) +
                                                  " planes, and a step between them that is not 0");
    }
    PatientPlane plane = options.plane;
    TakeUsualSide(plane);
    // Row and column are found here: the volume frame is a mirror image of the patient, where a cross product has the
    // other sign.
    const Vector away = UnitOf(plane.normal);
    const Vector up = UnitOf(*plane.up);
    const Vector row = UnitOf(Cross(away, up));
    CVolume& volume = *slice.GetVolume();
    const Box box(volume);
    if (!slice.SetPlane(plane.point ? slice.DicomToVol(*plane.point) : box.Middle(), slice.DirectionToVol(row),
                        slice.DirectionToVol(Cross(away, row)))) {
        throw Error(ErrorKind::WrongArgument,
                    "--normal or --up has no length, or they are parallel, or --point is too far away");
    }
    const bool isMirrored = Dot(slice.DirectionToDicom(slice.GetNormal()), options.plane.normal) < 0;
    const double step = isMirrored ? -options.step : options.step;
    if (options.shift != 0 && !slice.Move(isMirrored ? -options.shift : options.shift)) {
        throw Error(ErrorKind::WrongArgument, slice.GetError());
    }
    double alongRow = -1;
    double alongColumn = -1;
    for (int n = 0; n < options.count; ++n) {
        DcmObliqueSlice moved(slice);
        if (!moved.Move(n * step)) throw Error(ErrorKind::WrongArgument, moved.GetError());
        Cut cut(moved);
        if (!cut.Find(box)) continue;
        alongRow = std::max(alongRow, cut.GetAlongRow());
        alongColumn = std::max(alongColumn, cut.GetAlongColumn());
    }
    if (alongRow < 0) {
        throw Error(ErrorKind::Unsupported,
                    options.count > 1 ? "no plane meets the volume" : "the plane does not meet the volume");
    }
    float space[4];
    volume.GetSpacing(space);
    const double pixel = options.pixelSize > 0 ? options.pixelSize : static_cast<double>(std::min(space[0], space[1]));
    const auto side = [pixel](double reach) { return 2 * std::ceil(reach / pixel - kRoundingOfPixels) + 1; };
    SetPixels(slice, side(alongRow), side(alongColumn), pixel, options);
    return step;
}

}  // namespace korvane
