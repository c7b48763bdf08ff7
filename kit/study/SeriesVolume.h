// The volumes of one series, as the module holds them: what the rooms that work on volumes begin with.
#pragma once

#include "../core/Watch.h"
#include "FoundFiles.h"
#include "Padding.h"
#include "SeriesChoice.h"
#include "SeriesLoader.h"
#include "Volume.h"

#include "../../series/CDicomVolume.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace korvane {

class IntegerScale;
class PlaneStream;
struct MeasuredReals;
struct PlaneScaling;
struct StreamedVolume;

/// The module's voxel types in the Kit's words.
VoxelType TypeOf(CVolume::PixelType type);
CVolume::PixelType ModuleTypeOf(VoxelType type);

class SeriesVolume {
public:
    /// Finds and chooses the series by its headers. Throws `Error`.
    explicit SeriesVolume(const SeriesChoice& choice);
    ~SeriesVolume();
    /// `volume`: from 1; 0: not asked for, which is the first. Throws `Error`.
    SeriesVolume(const Series& series, int volume, const Watch& watch);

    const Series& GetHandle() const { return m_Series; }
    const ImageHeader& GetHeader() const { return GetFound().FirstFile(GetSeries()); }
    /// Of the first slice; spacing is that of the volume.
    const FramePlace& GetPlace() const { return m_Place; }
    std::size_t GetSliceCount() const;

    const FoundFiles& GetFound() const { return m_Series.GetFiles(); }
    const FoundSeries& GetSeries() const { return m_Series.GetFound(); }
    /// Where positions repeat the series makes several volumes.
    const VolumeSets& GetSets() const { return GetSeries().sets; }
    bool IsVolumeChosen() const { return m_nVolume != 0; }
    int GetVolumeNumber() const { return m_nVolume != 0 ? m_nVolume : 1; }

    /// Whether the voxels are grey values, not colours or palette entries.
    bool IsGrey() const;
    /// What they are, for a message, when they are not.
    std::string DescribeColours() const;

    /// Tells what is odd about the series, and which volume was taken where none was asked for.
    void TellChoice() const;

    /// Values are standardized uptake values from the next `Load` on, which throws where they cannot be (see `Uptake.h`).
    void TakeUptake() { m_bUptake = true; }
    bool HasUptake() const { return m_bUptake; }

    /// Threads for what is read; see `CountJobs`. As it is made, one for each core.
    void SetJobs(unsigned jobs) { m_nJobs = jobs; }
    unsigned GetJobs() const { return m_nJobs; }

    /// Tells the watcher what is odd about the series.
    void TellWarnings() const;
    /// Reads slices and makes the volume of them, with its true minimum and maximum, in place of the one before.
    /// Throws `Error`.
    void Load(const std::vector<SliceRef>& slices);

    /// Whether the slices can be read one after the other, so that memory never holds them all: each is a file of its own, or
    /// a frame that can be read alone, all in one form. The module must begin with the first of them, too: one with an Instance
    /// Number below 1 goes before. `later`: volumes that are read after this one, in the same form. Throws `Error`.
    bool CanStream(const std::vector<SliceRef>& slices, const std::vector<std::vector<SliceRef>>& later = {}) const;
    /// `Load` without voxels: `ReadPlanes` brings them. Throws `Error`.
    void Place(const std::vector<SliceRef>& slices);
    /// After `Place`: reads the planes, and hands them over in their order, the values
    /// that `Load` would have found. `take` runs on the calling thread. The range is known afterwards, and so is what was met.
    /// Throws `Error`.
    void ReadPlanes(const std::function<void(int plane, std::span<const std::byte> voxels)>& take);
    /// After `Place`: what is to be read of this volume, for `ReadVolumes`.
    StreamedVolume GetStreamed() const;
    /// The planes of several volumes of as many planes, which `Place` has had: as `ReadPlanes` of one after the other, but small
    /// volumes are read side by side. `end`: after the last plane of each, when its range is known. Throws `Error`.
    void ReadVolumes(std::vector<StreamedVolume> volumes,
                     const std::function<void(std::size_t volume, int plane, std::span<const std::byte> voxels)>& take,
                     const std::function<void(std::size_t volume)>& end);
    /// `ReadPlanes` where slices have rescales of their own, or uptake is asked for: planes that are streamed from now on are
    /// brought to one scale (see `CommonScale.h`), as by `BringToOneScale`, which tells nothing. `step`: after each plane.
    /// False, and nothing is changed, where real values are beyond any number. Not of integers, the range is known after
    /// `ReadPlanes`. Throws `Error`.
    bool ScalePlanes(bool integers, const std::function<void()>& step);
    /// When all of those were read again as integers: tells of the scale, with its rounding error.
    void TellScale(double error);
    /// After `ReadPlanes`: what the module's exporters read of a volume and of data sets is as after `Load`, but for the
    /// pixels, of which no plane has any. Throws `Error`.
    void FitForModule();
    /// After `Place`: the planes once more, for somebody who asks for them; from the last one to the first where `lastFirst`.
    std::unique_ptr<PlaneStream> StreamPlanes(bool lastFirst) const;
    /// The range of all voxels, padding among them, that `ReadPlanes` met.
    const MeasuredRange& GetWholeRange() const { return m_WholeRange; }
    /// After `Place`, until the next `Load`.
    bool IsStreamed() const { return m_Pixels == LoadedSlices::Pixels::Later; }

    // After Load:
    const std::vector<SliceRef>& GetSlices() const { return m_Slices; }  ///< in list order
    FramePlaces GetPlanePlaces() const;                                  ///< in plane order
    CDicomVolume& GetAssembled() { return m_Assembled; }
    /// Where the module has no type for the voxels, its planes have places and no pixels.
    CVolume& GetVolume() { return *m_Assembled.GetVolume(); }
    bool IsInModule() const { return m_OwnVoxels.IsEmpty(); }  ///< assembled by it, as stored values
    VoxelType GetType() const;
    /// Of one plane after the other, in plane order.
    std::span<const std::byte> GetVoxels() const;
    /// What was met while pixels were read, and what became of their scales.
    const std::vector<Finding>& GetReadFindings() const { return m_Read; }

    /// Whether each slice has a rescale of its own, so that stored values of two of them cannot be compared.
    bool RescalesDiffer() const;
    /// Brings them to one (see `CommonScale.h`), which the places of planes then say. Colours have none.
    /// `tell`: not for what is made beside the result.
    void BringToOneScale(bool integers, bool tell = true);
    /// The largest rounding error of that; nothing before.
    const std::optional<double>& GetScaleError() const { return m_ScaleError; }
    /// Before another volume takes the place of the one that was loaded: its data sets may point into that.
    void DropPixels() { m_Loaded->DropPixels(); }
    DICOMDataObject& GetFirstDataSet() const { return *m_Loaded->GetDataSets().front(); }
    /// All of them, in list order, with the paths of their files. Frames of one file have their own.
    std::vector<std::pair<std::string, const DICOMDataObject*>> ListDataSets() const;
    /// The files that were read, each with its path.
    const std::vector<std::pair<std::string, const DICOMDataObject*>>& GetFiles() const { return m_Loaded->GetFiles(); }

    /// Of the first slice, as stored; where values were brought to one scale, what padding became. The value is what voxels
    /// without data get.
    std::optional<Padding> GetPadding() const;
    std::optional<double> GetPaddingValue();
    /// Whether any slice that was read, of this volume or an earlier one, has a Modality LUT, which no voxel went through.
    bool HasModalityTables() const { return m_bTables; }
    /// The volume's smallest and largest value, without padding unless there is nothing else; of planes that are streamed once
    /// they were read.
    MeasuredRange GetMeasuredRange();
    /// Voxels of types that no plane of the module's has, 64-bit floats and signed 8 bits, as 32-bit floats and signed 16
    /// bits: for pictures.
    void MakeSliceable();
    /// After `Place` and `ReadPlanes`: the volume's planes are these, of a type that the module has, in the caller's memory.
    /// They are the module's from then on; `range` is that of all voxels.
    void ShowPlanes(VoxelType type, const std::vector<std::byte*>& planes, const MeasuredRange& range);

private:
    void Begin(const std::vector<SliceRef>& slices, LoadedSlices::Pixels pixels);
    void KeepCodecOf(const ImageHeader& header);
    void TakeSlices(const std::vector<SliceRef>& slices);
    void CheckExtent() const;
    void Assemble();
    std::vector<Padding> GetPlanePaddings() const;
    void TellOtherPadding(const std::optional<Padding>& first);
    void TellOneScale(bool differ, double error, std::uint64_t paddingVoxels);
    void TakeScaledRange(const IntegerScale& scale, const MeasuredReals& reals);
    void ReadPlanes(PlaneStream& stream, int planes,
                    const std::function<void(int plane, std::span<const std::byte> voxels)>& take);
    void TakeRead(const PlaneStream& stream);
    std::unique_ptr<PlaneStream> StreamVolumes(std::vector<StreamedVolume> volumes) const;
    void SetTrueSpacing();
    double FindUptakeFactor();
    void ApplyUptake();
    bool CanReadFrames(const std::vector<SliceRef>& slices) const;
    void ReadInPlace();
    void ReadFramesInPlace();
    void PutOwnVoxels();
    template <class From, class To>
    void PutVoxelsAs(VoxelType type);
    void Tell(Finding finding);

    Series m_Series;
    Watch m_Watch;
    int m_nVolume;
    unsigned m_nJobs = 0;
    CodecManager m_Codecs;  // has that of the transfer syntax in use
    std::string m_KeptSyntax;
    std::vector<SliceRef> m_Slices;
    FramePlace m_Place;
    std::optional<LoadedSlices> m_Loaded;
    std::vector<Finding> m_Read;
    bool m_bUptake = false;
    LoadedSlices::Pixels m_Pixels = LoadedSlices::Pixels::Now;
    MeasuredRange m_StreamedRange{0, 0};
    MeasuredRange m_WholeRange{0, 0};
    std::vector<std::optional<std::string>> m_Thicknesses;  // of slices, in list order
    std::optional<VoxelType> m_OwnType;
    std::optional<Rescale> m_Scale;  // of all planes, in place of their own
    std::optional<double> m_ScaleError;
    std::optional<double> m_ScaledPadding;
    std::unique_ptr<PlaneScaling> m_pScaling;  // of planes that are streamed
    bool m_bTables = false;
    VoxelBlock m_OwnVoxels;  // outlives the volume, whose planes may lie in it
    CDicomVolume m_Assembled;
};

}  // namespace korvane
