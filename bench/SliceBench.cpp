// usage: bench_slice [--rounds=N] [--planes=N] [FOLDER...]
//
// Slices of 512 x 512 pixels out of 512 x 512 x 300 16-bit voxels beside vtkImageReslice (where VTK is installed) and
// beside two limits: the same voxels fetched at addresses that are known beforehand, and the cache lines that hold them
// read as a stream would read them ("lines"). Before anything is timed, random planes
// are compared with VTK's, pixel by pixel, in a volume made for it and in the series of the folders (16-bit, planes at
// even distances). Each round runs all sides one after the other, so that what disturbs the
// machine disturbs all; ratios are medians over the rounds. Fails when an aim is missed or pixels differ.
#include "ResliceBench.h"
#include "RowFile.h"

#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Job = std::function<void()>;

struct Aim {
    double wide = 0;    ///< VTK's time / ours, at least
    double narrow = 0;  ///< the same without wide vector units
};

struct Orientation {
    const char* name;
    DcmObliqueSlice::Vector row;
    DcmObliqueSlice::Vector column;
    Aim linear;
    Aim nearest;
};

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

double Seconds(const Job& job) {
    const double begin = ProcessorSeconds();
    job();
    return ProcessorSeconds() - begin;
}

// A volume with a different structure in every direction, and noise.
class Block {
public:
    Block(int nx, int ny, int nz, float sx, float sy, float sz) {
        m_pVolume = CVolume::New();
        m_pVolume->Init(CVolume::PT_SHORT, nx, ny, nz, 1);
        m_pVolume->Alloc(true);
        float space[4] = {sx, sy, sz, 0};
        m_pVolume->SetSpacing(space);
        auto* voxel = static_cast<std::int16_t*>(m_pVolume->GetVolumePt());
        std::minstd_rand random;
        for (int k = 0; k < nz; ++k) {
            m_pVolume->GetPlane(k)->m_Org[2] = static_cast<float>(k) * sz;
            for (int j = 0; j < ny; ++j) {
                for (int i = 0; i < nx; ++i) {
                    *voxel++ =
                        static_cast<std::int16_t>(i * 3 - j * 2 + k * 5 + static_cast<int>(random() % 2001) - 1000);
                }
            }
        }
        m_pVolume->UpdateZInterpArray();
    }
    ~Block() { m_pVolume->Delete(); }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    CVolume* Get() const { return m_pVolume; }

private:
    CVolume* m_pVolume;
};

std::vector<std::int16_t> Pixels(DcmObliqueSlice& slice) {
    std::vector<std::int16_t> pixels(slice.GetPixelCount());
    if (!slice.GetPixels(pixels.data(), pixels.size() * sizeof pixels[0])) {
        std::fprintf(stderr, "bench_slice: %s\n", slice.GetError().c_str());
        std::exit(1);
    }
    return pixels;
}

// For each pixel the index of the first voxel that it is made of. The limit fetches eight values (or one) from there.
std::vector<std::uint32_t> Addresses(const DcmObliqueSlice& slice, CVolume& volume) {
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    std::vector<std::uint32_t> addresses;
    for (int j = 0; j < slice.GetHeight(); ++j) {
        for (int i = 0; i < slice.GetWidth(); ++i) {
            const auto p = slice.PixelToVol(i, j);
            std::uint32_t at[3];
            bool inside = true;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                const double index = p[axis] / space[axis];
                inside = inside && index >= 0 && index < dim[axis] - 1;
                at[axis] = inside ? static_cast<std::uint32_t>(index) : 0;
            }
            if (inside) {
                const auto nx = static_cast<std::uint32_t>(dim[0]), ny = static_cast<std::uint32_t>(dim[1]);
                addresses.push_back(at[0] + nx * (at[1] + ny * at[2]));
            }
        }
    }
    return addresses;
}

std::uint32_t Fetch(const std::vector<std::uint32_t>& addresses, CVolume& volume, bool neighbours) {
    int dim[4];
    volume.GetDimensions(dim);
    const auto* const voxels = static_cast<const std::uint16_t*>(volume.GetVolumePt());
    const auto row = static_cast<std::size_t>(dim[0]);
    const std::size_t plane = row * static_cast<std::size_t>(dim[1]);
    std::uint32_t sum = 0;
    for (const std::uint32_t address : addresses) {
        const std::uint16_t* const v = voxels + address;
        sum += v[0];
        if (neighbours) {
            sum += v[1] + v[row] + v[row + 1] + v[plane] + v[plane + 1] + v[plane + row] + v[plane + row + 1];
        }
    }
    return sum;
}

// Cache lines that hold the voxels fetched, each counted once.
std::size_t CountLines(const std::vector<std::uint32_t>& addresses, CVolume& volume, bool neighbours) {
    int dim[4];
    volume.GetDimensions(dim);
    const std::size_t row = static_cast<std::size_t>(dim[0]), plane = row * static_cast<std::size_t>(dim[1]);
    std::vector<bool> touched(plane * static_cast<std::size_t>(dim[2]) / 32 + 1);
    for (const std::size_t address : addresses) {
        for (const std::size_t step : {std::size_t{0}, row, plane, plane + row}) {
            touched[(address + step) / 32] = true;
            if (!neighbours) break;
            touched[(address + step + 1) / 32] = true;
        }
    }
    return static_cast<std::size_t>(std::count(touched.begin(), touched.end(), true));
}

// Seconds a line takes when the whole volume is read from end to end.
double SecondsPerLine(CVolume& volume) {
    int dim[4];
    volume.GetDimensions(dim);
    const std::size_t words = static_cast<std::size_t>(dim[0]) * dim[1] * dim[2] / 4;
    const auto* const data = static_cast<const std::uint64_t*>(volume.GetVolumePt());
    volatile std::uint64_t kept = 0;
    std::vector<double> seconds;
    for (int i = 0; i < 5; ++i) {
        seconds.push_back(Seconds([&] { kept = std::accumulate(data, data + words, std::uint64_t{0}); }));
    }
    return Median(seconds) * 8 / static_cast<double>(words);
}

struct Figures {
    std::vector<double> ours, narrow, limit, peer;
    std::vector<double> ofPeer, narrowOfPeer, ofLimit;
};

int Judge(const char* what, double ratio, double least) {
    if (least <= 0 || ratio <= 0) return 0;
    std::printf("  %s >= %.1f %s", what, least, ratio >= least ? "met" : "MISSED");
    return ratio >= least ? 0 : 1;
}

int Measure(const Orientation& orientation, bool linear, CVolume& volume, double perLine, int rounds) {
    DcmObliqueSlice slice(&volume);
    slice.SetPlane({255.5 * 0.7, 255.5 * 0.7, 149.5}, orientation.row, orientation.column);
    slice.SetPixelSize(0.7F, 0.7F);  // exactly the volume's spacing
    slice.SetInterpolation(linear ? DcmObliqueSlice::IP_LINEAR : DcmObliqueSlice::IP_NEAREST);
    DcmObliqueSlice narrow(slice);
    narrow.AllowWideVectors(false);
    ResliceBench peer(volume);
    const auto addresses = Addresses(slice, volume);
    std::vector<std::int16_t> out(slice.GetPixelCount());
    const std::size_t bytes = out.size() * sizeof out[0];
    volatile std::uint32_t kept = 0;
    Figures f;
    peer.Run(slice, linear);
    for (int round = 0; round < rounds; ++round) {
        f.ours.push_back(Seconds([&] { slice.GetPixels(out.data(), bytes); }));
        f.narrow.push_back(Seconds([&] { narrow.GetPixels(out.data(), bytes); }));
        f.limit.push_back(Seconds([&] { kept = Fetch(addresses, volume, linear); }));
        f.ofLimit.push_back(f.ours.back() / f.limit.back());
        if (ResliceBench::IsThere()) {
            f.peer.push_back(Seconds([&] { peer.Run(slice, linear); }));
            f.ofPeer.push_back(f.peer.back() / f.ours.back());
            f.narrowOfPeer.push_back(f.peer.back() / f.narrow.back());
        }
    }
    const auto lines = static_cast<double>(CountLines(addresses, volume, linear));
    std::printf("%-8s %-22s %8.2f %8.2f %8.2f %8.2f %8.2f %8.2f %8.2f %8.2f", linear ? "linear" : "nearest",
                orientation.name, Median(f.ours) * 1e3, Median(f.narrow) * 1e3, Median(f.limit) * 1e3,
                lines * perLine * 1e3, Median(f.peer) * 1e3, Median(f.ofLimit), Median(f.ofPeer),
                Median(f.narrowOfPeer));
    RowOfTable row{"bench_slice", std::string(linear ? "slice, linear, " : "slice, nearest, ") + orientation.name,
                   "the same voxels at known addresses", f.ours, f.limit};
    if (ResliceBench::IsThere()) row.peers.emplace_back("VTK", f.peer);
    TellRow(row);
    const Aim& aim = linear ? orientation.linear : orientation.nearest;
    const int missed = Judge("VTK", Median(f.ofPeer), aim.wide) + Judge("narrow", Median(f.narrowOfPeer), aim.narrow);
    std::printf("\n");
    return missed;
}

// Counts the pixels that differ by more than `most`. Pixels where a rounding decides which voxel is taken are left out:
// those on the border of the volume, and for nearest-neighbour interpolation those halfway between voxels.
struct Difference {
    std::size_t compared = 0;
    std::size_t different = 0;
    int largest = 0;
};

bool IsDoubtful(double index, int dim, bool linear) {
    constexpr double kNear = 2e-4;
    const double half = std::fabs(index - std::floor(index) - 0.5);
    return std::fabs(index) < kNear || std::fabs(index - (dim - 1)) < kNear || (!linear && half < kNear);
}

DcmObliqueSlice::Vector PointOf(const DcmObliqueSlice& slice, std::size_t pixel) {
    const auto width = static_cast<std::size_t>(slice.GetWidth());
    const std::size_t row = pixel / width;
    return slice.PixelToVol(static_cast<double>(pixel - row * width), static_cast<double>(row));
}

void Compare(DcmObliqueSlice& slice, CVolume& volume, bool linear, Difference& difference) {
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    slice.SetInterpolation(linear ? DcmObliqueSlice::IP_LINEAR : DcmObliqueSlice::IP_NEAREST);
    slice.SetBackground(-4000);
    const std::vector<std::int16_t> ours = Pixels(slice);
    ResliceBench peer(volume);
    const std::int16_t* const theirs = peer.Run(slice, linear);
    for (std::size_t i = 0; i < ours.size(); ++i) {
        const auto p = PointOf(slice, i);
        bool doubtful = false;
        for (std::size_t axis = 0; axis < 3; ++axis) doubtful |= IsDoubtful(p[axis] / space[axis], dim[axis], linear);
        if (doubtful) continue;
        const int distance = std::abs(ours[i] - theirs[i]);
        ++difference.compared;
        difference.different += distance > (linear ? 1 : 0) ? 1 : 0;
        difference.largest = std::max(difference.largest, distance);
    }
}

int CompareRandomPlanes(const std::string& name, CVolume& volume, int planes) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(-1, 1);
    const auto vector = [&] { return DcmObliqueSlice::Vector{unit(random), unit(random), unit(random)}; };
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    int failed = 0;
    for (const bool linear : {false, true}) {
        Difference difference;
        for (int n = 0; n < planes; ++n) {
            DcmObliqueSlice slice(&volume);
            DcmObliqueSlice::Vector centre = vector();
            for (std::size_t axis = 0; axis < 3; ++axis) {
                centre[axis] = (1 + 0.8 * centre[axis]) * (dim[axis] - 1) * space[axis] / 2;
            }
            slice.SetPlane(centre, vector(), vector());
            slice.SetPixelSize((0.9 + 0.6 * unit(random)) * space[0], (0.9 + 0.6 * unit(random)) * space[1]);
            slice.SetSize(131, 127);
            Compare(slice, volume, linear, difference);
        }
        std::printf("%s, %s: %d planes, %zu pixels compared, %zu beyond %d, largest difference %d\n", name.c_str(),
                    linear ? "linear" : "nearest", planes, difference.compared, difference.different, linear ? 1 : 0,
                    difference.largest);
        failed += difference.different > 0 ? 1 : 0;
    }
    return failed;
}

// Moves planes that miss an even grid only by the rounding of their stored decimals onto it, since VTK has even grids
// only.
bool MakeEven(CVolume& volume, int planes) {
    const double first = volume.GetPlane(0)->m_Org[2];
    const double gap = (volume.GetPlane(planes - 1)->m_Org[2] - first) / (planes - 1);
    float space[4];
    volume.GetSpacing(space);
    space[2] = static_cast<float>(gap);
    volume.SetSpacing(space);
    for (int k = 0; k < planes; ++k) {
        float& z = volume.GetPlane(k)->m_Org[2];
        if (!(std::fabs(z - (first + k * gap)) < 1e-3 * gap)) return false;
        z = static_cast<float>(k) * space[2];
    }
    return true;
}

// Marks one slice of each group at the same place (a series over time has several), as a mask over the list.
std::vector<bool> OneOfEachPlace(const CDicomVolume& series, std::size_t count) {
    std::vector<bool> mask(count);
    CVolume& volume = *series.GetVolume();
    for (int k = 0; k < volume.GetPlaneCount(); ++k) {
        const bool fresh = k == 0 || std::fabs(volume.GetPlane(k)->m_Org[2] - volume.GetPlane(k - 1)->m_Org[2]) > 1e-3;
        if (fresh) mask[static_cast<std::size_t>(series.m_SliceToIndex[static_cast<std::size_t>(k)])] = true;
    }
    return mask;
}

int CompareSeries(const std::string& folder, int planes) {
    std::vector<std::unique_ptr<DICOMDataObject>> dataSets;
    std::vector<DICOMDataObject*> list;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        std::unique_ptr<DICOMDataObject> dataSet(LoadDICOMFile(file.path().string().c_str()));
        if (dataSet == nullptr || dataSet->GetVR(tags::PixelData) == nullptr) continue;
        list.push_back(dataSet.get());
        dataSets.push_back(std::move(dataSet));
    }
    CDicomVolume series;
    series.SetIODList(list, nullptr);
    std::vector<bool> mask = OneOfEachPlace(series, list.size());
    series.SetIODList(list, &mask);
    series.Alloc(true);
    CVolume& volume = *series.GetVolume();
    const int count = volume.GetPlaneCount();
    if (count < 2 || volume.GetTypeSize() != 2 || !MakeEven(volume, count)) {
        std::printf("%s: left out, not 16-bit or not even\n", folder.c_str());
        return 0;
    }
    volume.SetType(CVolume::PT_SHORT);  // the same as for VTK
    return CompareRandomPlanes(folder, volume, planes);
}

int Argument(int argc, char** argv, std::string_view name, int value) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument.starts_with(name)) {
            std::from_chars(argument.data() + name.size(), argument.data() + argument.size(), value);
        }
    }
    return std::max(value, 1);
}

}  // namespace

int main(int argc, char** argv) {
    const double h = std::sqrt(0.5);
    // Where the rows of a picture cross planes or rows of the volume, memory limits both libraries (see "limit"). So
    // less can be gained in turns about y and z than about x, and nothing in the sagittal plane itself, for which VTK
    // has a special loop.
    const Orientation orientations[] = {
        {"axial", {1, 0, 0}, {0, 1, 0}, {0, 0}, {1.6, 0}},
        {"45 about x", {1, 0, 0}, {0, h, h}, {6, 2}, {1.6, 0}},
        {"45 about y", {h, 0, h}, {0, 1, 0}, {4, 2}, {1.6, 0}},
        {"45 about z", {h, h, 0}, {0, 0, 1}, {4, 2}, {1.6, 0}},
        {"double oblique", {0.8, 0.36, 0.48}, {0, 0.8, -0.6}, {6, 2}, {1.6, 0}},
        {"near sagittal", {0.02, 1, 0.01}, {0.03, -0.01, 1}, {2.5, 0}, {1.6, 0}},
        {"near sagittal, turned", {0.03, -0.01, 1}, {0.02, 1, 0.01}, {2.5, 0}, {1.6, 0}},
        {"sagittal", {0, 1, 0}, {0, 0, 1}, {0, 0}, {0, 0}},
        {"coronal", {1, 0, 0}, {0, 0, 1}, {0, 0}, {1.6, 0}},
    };
    int failed = 0;
    const int planes = Argument(argc, argv, "--planes=", 200);
    if (ResliceBench::IsThere()) {
        failed += CompareRandomPlanes("noise", *Block(70, 90, 60, 0.7F, 0.5F, 1.25F).Get(), planes);
        for (int i = 1; i < argc; ++i) {
            if (argv[i][0] != '-') failed += CompareSeries(argv[i], planes);
        }
    }
    const Block block(512, 512, 300, 0.7F, 0.7F, 1.0F);
    const double perLine = SecondsPerLine(*block.Get());
    std::printf("\n%-31s %8s %8s %8s %8s %8s %8s %8s %8s\n", "milliseconds, one thread", "ours", "narrow", "limit",
                "lines", "VTK", "/ limit", "VTK/ours", "narrow");
    for (const bool linear : {true, false}) {
        for (const Orientation& orientation : orientations) {
            failed += Measure(orientation, linear, *block.Get(), perLine, Argument(argc, argv, "--rounds=", 15));
        }
    }
    return failed > 0 ? 1 : 0;
}
