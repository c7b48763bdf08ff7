#include "VoxelFile.h"

#include "../core/Error.h"
#include "../dataset/Toolkit.h"
#include "../study/PlaceRescale.h"
#include "../study/SeriesFindings.h"
#include "../study/SeriesVolume.h"
#include "../study/VolumeData.h"
#include "../study/VoxelDispatch.h"
#include "ExportReport.h"
#include "GzipStream.h"

#include "base/Number.h"
#include "export/CFileWriter.h"
#include "volume/CImagePlane.h"
#include "volume/CVolume.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace korvane {

namespace {

using Vector = Volume::Vector;

constexpr double kClock = 0.005;  // seconds; clocks are written to a few milliseconds
constexpr double kTilt = 0.1;     // degrees; rounded positions stay below

Vector Times(const Vector& v, double factor) {
    return {v[0] * factor, v[1] * factor, v[2] * factor};
}

bool HaveOneRescale(const SeriesVolume& series, const ExportPart& part) {
    const Rescale first = RealRescaleOf(series.GetFound().PlaceOf(part.slices.front()));
    const auto same = [&](const SliceRef& slice) { return RealRescaleOf(series.GetFound().PlaceOf(slice)) == first; };
    return std::all_of(part.slices.begin(), part.slices.end(), same) &&
           std::all_of(part.later.begin(), part.later.end(),
                       [&](const std::vector<SliceRef>& time) { return std::all_of(time.begin(), time.end(), same); });
}

/// False where a real value is beyond the range of a float.
template <class T>
bool ToReal(const void* values, const Rescale& rescale, std::size_t count, std::byte* to) {
    const T* const stored = static_cast<const T*>(values);
    bool fit = true;
    for (std::size_t i = 0; i < count; ++i) {
        const double value = static_cast<double>(stored[i]) * rescale.slope + rescale.intercept;
        const auto real = static_cast<float>(value);
        fit = fit && (std::isfinite(real) || !std::isfinite(static_cast<double>(stored[i])));
        std::memcpy(to + i * sizeof real, &real, sizeof real);
    }
    return fit;
}

/// Whether 32 bits, which is what headers have for them, hold both numbers.
bool FitsHeader(const Rescale& rescale) {
    const auto fits = [](double value) {
        return std::fabs(static_cast<double>(static_cast<float>(value)) - value) <= 1e-6 * std::fabs(value);
    };
    return fits(rescale.slope) && fits(rescale.intercept);
}

}  // namespace

VoxelFile::VoxelFile(SeriesVolume& series, const ExportFormat& format, const ExportOptions& options, bool remote)
    : m_Series(series), m_Format(format), m_Options(options), m_Watch(options.watcher), m_bRemote(remote) {}

ExportedVolume VoxelFile::Write(const ExportPart& part, Resampling resample, CFileWriter& writer,
                                const std::string& path) {
    const bool gzip = m_Options.compress && m_Format.CanCompress();
    ExportedVolume entry;
    std::unique_ptr<ByteStream> stream;
    bool written = true;
    std::optional<double> fill;
    unsigned long long filled = 0;
    const bool isStreamed = !resample && m_Series.CanStream(part.slices, part.later);
    std::vector<StreamedVolume> streamed;
    // A server would keep a part of a file of which a slice cannot be read.
    if (isStreamed && m_bRemote) CheckSlices(part);
    for (std::size_t time = 0; written && time <= part.later.size(); ++time) {
        const std::vector<SliceRef>& slices = time == 0 ? part.slices : part.later[time - 1];
        isStreamed ? m_Series.Place(slices) : m_Series.Load(slices);
        EvenPlanes even;
        if (resample && m_Series.RescalesDiffer()) m_Series.BringToOneScale(false);
        if (resample && m_Series.GetVolume().GetPlane(0)->m_pData == nullptr) {
            throw Error(ErrorKind::Unsupported,
                        std::string("voxels of this type are not resampled: ") + WordOf(m_Series.GetType()));
        }
        if (const auto padding = m_Series.GetPaddingValue()) fill = padding;
        if (resample) even.PutInto(m_Series, resample, fill, m_Watch);
        filled += even.CountFilled();
        if (time == 0) {
            entry = DescribeVolume(m_Series, part, false);
            entry.fill = even.GetFill();
            ReadGrid(part, static_cast<bool>(resample), entry);
            if (even.CountFilled() > 0 && !m_bReal) fill = entry.fill;  // the same in all times
            if (!writer.Open((path + m_Format.GetExtension(gzip)).c_str(), "wb")) return entry;
            stream = gzip ? std::make_unique<GzipStream>(writer, m_Options.jobs, m_Watch)
                          : std::make_unique<ByteStream>(writer);
            const std::string header = m_Format.MakeHeader(m_Grid, gzip);
            // Behind a header of text the voxels alone are compressed.
            ByteStream plain(writer);
            ByteStream& headerStream = m_Format.IsHeaderCompressed() ? *stream : plain;
            written = headerStream.Write(std::as_bytes(std::span(header)));
        }
        if (time == 0 && isStreamed && m_Options.preview && PreviewPlanes::CanTake(m_Series))
            m_Preview.emplace(m_Series);
        m_Rescales.push_back(ListRescales());
        if (isStreamed) {
            streamed.push_back(m_Series.GetStreamed());
        } else {
            written = written && WriteVolume(*stream, time);
            AddRange(entry, time == 0);
        }
    }
    if (written && isStreamed) WriteStreamed(*stream, std::move(streamed), entry);
    if (written) stream->End();
    writer.Close();
    entry.times = m_Grid.size[3];
    entry.filled = filled;
    entry.values = DescribeValues();
    return entry;
}

/// Reads all once, so that what is wrong with a slice is known before a file is begun.
void VoxelFile::CheckSlices(const ExportPart& part) {
    std::vector<StreamedVolume> volumes;
    const auto place = [&](const std::vector<SliceRef>& slices) {
        m_Series.Place(slices);
        volumes.push_back(m_Series.GetStreamed());
    };
    place(part.slices);
    for (const std::vector<SliceRef>& time : part.later) place(time);
    const std::size_t planes = volumes.size() * volumes.front().order.size();
    TaskProgress progress(m_Watch, "reading", static_cast<std::int64_t>(planes));
    m_Series.ReadVolumes(
        std::move(volumes), [&](std::size_t, int, std::span<const std::byte>) { progress.Step(); }, [](std::size_t) {});
}

void VoxelFile::AddRange(ExportedVolume& entry, bool first) const {
    if (first && !m_Series.IsStreamed()) return;  // it has it already
    const MeasuredRange range = m_Series.GetMeasuredRange();
    entry.smallest = first ? range.smallest : std::min(entry.smallest, range.smallest);
    entry.largest = first ? range.largest : std::max(entry.largest, range.largest);
    entry.padding = (first ? 0 : entry.padding) + range.padding;
}

void VoxelFile::ReadGrid(const ExportPart& part, bool resample, const ExportedVolume& entry) {
    int dim[4];
    m_Series.GetVolume().GetDimensions(dim);
    for (std::size_t i = 0; i < 3; ++i) m_Grid.size[i] = static_cast<std::size_t>(dim[i]);
    m_Grid.size[3] = part.later.size() + 1;
    m_Grid.type = m_Series.GetType();
    // Volumes that are brought to one scale each have several.
    const bool isScaled = m_Series.GetScaleError() && part.later.empty();
    m_bReal = m_Grid.type != VoxelType::Rgb24 && !isScaled && !HaveOneRescale(m_Series, part);
    m_Rescale = m_bReal || m_Grid.type == VoxelType::Rgb24 ? Rescale{} : RealRescaleOf(m_Series.GetPlace());
    m_Grid.rescale = m_Format.HoldsRescale() && !FitsHeader(m_Rescale) ? Rescale{} : m_Rescale;
    if (m_bReal) m_Grid.type = VoxelType::Float32;
    m_Grid.isResampled = resample;
    ReadPlace(entry);
    if (m_Format.HoldsTimes() || m_Options.sidecar) ReadFacts(part);
}

void VoxelFile::ReadFacts(const ExportPart& part) {
    m_Facts = ReadScanFacts(m_Series, part, m_Grid.steps[2], m_Watch);
    m_Grid.phaseAxis = m_Facts->phaseAxis;
    if (!m_Grid.isResampled) m_Grid.sliceTimes = m_Facts->sliceTimes;
    if (m_Grid.size[3] > 1) m_Grid.timeStep = m_Facts->repetitionTime;
}

std::vector<std::pair<std::string, std::string>> VoxelFile::MakeSidecars(const SidecarExtras& extras) const {
    std::vector<std::pair<std::string, std::string>> texts = {{".json", MakeSidecar(*m_Facts, m_Series, extras)}};
    if (m_Facts->weightings.empty()) return texts;
    const auto& [row, column, step] = m_Grid.steps;
    const double determinant = (row[1] * column[2] - row[2] * column[1]) * step[0] +
                               (row[2] * column[0] - row[0] * column[2]) * step[1] +
                               (row[0] * column[1] - row[1] * column[0]) * step[2];
    texts.emplace_back(".bval", MakeBValues(*m_Facts));
    texts.emplace_back(".bvec", MakeBVectors(*m_Facts, determinant > 0));
    return texts;
}

/// From the positions as the files have them; where planes were resampled, from those that the volume has now.
void VoxelFile::ReadPlace(const ExportedVolume& entry) {
    const FramePlace& place = m_Series.GetPlace();
    const Vector row = {place.orientation[0], place.orientation[1], place.orientation[2]};
    const Vector column = {place.orientation[3], place.orientation[4], place.orientation[5]};
    const Vector normal = StudyGeometry({place}).normal;
    std::vector<Vector> positions = entry.positions;
    const FramePlaces planes = m_Series.GetPlanePlaces();
    const std::size_t count = planes.GetCount();
    m_Grid.isPlaced = place.hasPosition && count > 0;
    if (!m_Grid.isResampled && m_Grid.isPlaced && count == positions.size() &&
        (count < 2 || planes.GetPosition(0) != planes.GetPosition(count - 1))) {
        for (std::size_t k = 0; k < count; ++k) positions[k] = planes.GetPosition(k);
    }
    m_Grid.origin = positions.front();
    m_Grid.steps = {Times(row, place.spacing[1]), Times(column, place.spacing[0]), Times(normal, entry.spacing[2])};
    if (positions.size() < 2) return;
    Vector& step = m_Grid.steps[2];
    for (std::size_t i = 0; i < 3; ++i) {
        step[i] = (positions.back()[i] - positions.front()[i]) / static_cast<double>(positions.size() - 1);
    }
    const double along = std::fabs(step[0] * normal[0] + step[1] * normal[1] + step[2] * normal[2]);
    const double length = std::hypot(step[0], step[1], step[2]);
    m_Grid.isTilted = std::acos(std::min(along / length, 1.0)) * 180 / std::numbers::pi > kTilt;
}

/// The planes of the module's volume, which may be resampled ones, else those of a type that it does not have.
std::span<const std::byte> VoxelFile::PlaneOf(int plane) const {
    const std::size_t bytes = m_Grid.size[0] * m_Grid.size[1] * SizeOf(m_Series.GetType());
    const void* const stored = m_Series.GetVolume().GetPlane(plane)->m_pData;
    if (stored != nullptr) return {static_cast<const std::byte*>(stored), bytes};
    return m_Series.GetVoxels().subspan(static_cast<std::size_t>(plane) * bytes, bytes);
}

/// Of the planes of the volume that was placed or loaded last; none where values are written as they are.
std::vector<Rescale> VoxelFile::ListRescales() const {
    std::vector<Rescale> rescales;
    if (!m_bReal) return rescales;
    const FramePlaces places = m_Series.GetPlanePlaces();
    for (std::size_t i = 0; i < places.GetCount(); ++i) rescales.push_back(RealRescaleOf(places.GetPlane(i)));
    return rescales;
}

std::unique_ptr<TaskProgress> VoxelFile::BeginVolume() const {
    const std::size_t bytes = m_Grid.size[0] * m_Grid.size[1] * SizeOf(m_Series.GetType());
    return std::make_unique<TaskProgress>(m_Watch, m_Options.dryRun ? "converting" : "writing",
                                          static_cast<std::int64_t>(m_Grid.size[2]), static_cast<double>(bytes));
}

bool VoxelFile::WritePlane(ByteStream& stream, std::size_t time, int plane, std::span<const std::byte> stored) {
    if (!m_bReal) return stream.Write(stored);
    const std::vector<Rescale>& rescales = m_Rescales[time];
    return stream.Write(RealValues(stored, rescales[std::min(static_cast<std::size_t>(plane), rescales.size() - 1)]));
}

bool VoxelFile::WriteVolume(ByteStream& stream, std::size_t time) {
    const std::unique_ptr<TaskProgress> progress = BeginVolume();
    for (int plane = 0; plane < static_cast<int>(m_Grid.size[2]); ++plane) {
        const bool written = WritePlane(stream, time, plane, PlaneOf(plane));
        progress->Step();  // a stop is why it was not
        if (!written) return false;
    }
    return true;
}

void VoxelFile::WriteStreamed(ByteStream& stream, std::vector<StreamedVolume> volumes, ExportedVolume& entry) {
    std::unique_ptr<TaskProgress> progress;
    m_Series.ReadVolumes(
        std::move(volumes),
        [&](std::size_t time, int plane, std::span<const std::byte> stored) {
            if (plane == 0) progress = BeginVolume();
            if (time == 0 && m_Preview) m_Preview->Take(plane, stored);
            const bool written = WritePlane(stream, time, plane, stored);
            progress->Step();  // a stop is why it was not
            // No more is read for a file that cannot be written; its writer knows why.
            if (!written) throw Error(ErrorKind::Disk, "the file cannot be written");
        },
        [&](std::size_t time) {
            progress.reset();
            if (time == 0 && m_Preview) m_Preview->SetRange(m_Series.GetWholeRange());
            AddRange(entry, time == 0);
        });
}

std::span<const std::byte> VoxelFile::RealValues(std::span<const std::byte> stored, const Rescale& rescale) {
    const std::size_t count = m_Grid.size[0] * m_Grid.size[1];
    m_Reals.resize(count * sizeof(float));
    bool fit = true;
    WithVoxelType(m_Series.GetType(),
                  [&](auto zero) { fit = ToReal<decltype(zero)>(stored.data(), rescale, count, m_Reals.data()); });
    if (!fit) throw Error(ErrorKind::Unsupported, "real values of the slices do not fit into 32-bit floats");
    return m_Reals;
}

ValueMapping VoxelFile::DescribeValues() const {
    ValueMapping mapping;
    const Rescale& rescale = m_Rescale;
    if (m_bReal) {
        mapping.formula = "real values";
        mapping.remarks.emplace_back(
            "each slice has a rescale of its own: the file holds real values in 32-bit floats");
    } else if (rescale != Rescale{} && m_Format.HoldsRescale() && m_Grid.rescale == rescale) {
        mapping.remarks.push_back("real values are stored * " + platform::FormatReal(rescale.slope) + " + " +
                                  platform::FormatReal(rescale.intercept) + ", as the header says");
    } else if (rescale != Rescale{}) {
        mapping.remarks.push_back("values are as stored: the real value is stored * " +
                                  platform::FormatReal(rescale.slope) + " + " +
                                  platform::FormatReal(rescale.intercept));
    }
    if (m_Grid.isTilted) {
        mapping.remarks.emplace_back(m_Format.HoldsTilt()
                                         ? "the planes are tilted: the header's axes are sheared, as the positions are"
                                         : "the planes are tilted: readers that expect right angles misplace them");
    }
    if (m_Facts && m_Facts->measuredInterval > 0 && m_Facts->repetitionTime > 0 &&
        std::fabs(m_Facts->measuredInterval - m_Facts->repetitionTime) > kClock + 0.01 * m_Facts->repetitionTime) {
        mapping.remarks.push_back("volumes follow each other every " + ShortNumber(m_Facts->measuredInterval) +
                                  " s, the repetition time is " + ShortNumber(m_Facts->repetitionTime) + " s");
    }
    if (!m_Grid.isPlaced) mapping.remarks.emplace_back("without positions: origin and directions are a guess");
    if (m_Series.GetHeader().form.photometric == "MONOCHROME1") {
        mapping.remarks.emplace_back("MONOCHROME1: low values are bright");
    }
    return mapping;
}

}  // namespace korvane
