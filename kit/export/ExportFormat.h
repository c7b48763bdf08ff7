// The formats of `korvane export`: what each can hold, and what its files do not say about their values.
#pragma once

#include "Export.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

class CVolume;
class CVolumeExport;

namespace korvane {

class SeriesVolume;
struct VoxelGrid;

class ExportFormat {
public:
    ExportFormat(const ExportFormat&) = delete;
    ExportFormat& operator=(const ExportFormat&) = delete;
    virtual ~ExportFormat() = default;

    /// Null for a name that is none. Names: those of `GetNames`.
    static const ExportFormat* Find(const std::string& name);
    static std::vector<std::string> GetNames();

    virtual const char* GetName() const = 0;
    /// Written by an exporter of the module; else by `VoxelFile`.
    virtual bool IsOfModule() const { return true; }
    virtual std::unique_ptr<CVolumeExport> MakeExporter() const;
    /// Those that its files have, the one for a name without an extension first.
    virtual std::vector<std::string> GetExtensions() const = 0;
    /// The file holds the slices from the last to the first.
    virtual bool IsLastFirst() const { return false; }
    /// The exporter's callback comes behind each slice, not before it.
    virtual bool CallsBehindPlanes() const { return false; }
    /// Its values are rescaled ones.
    virtual bool IsRescaled() const { return false; }
    /// Never replaces files, but takes other names.
    virtual bool KeepsExisting() const { return false; }
    /// What `exporter`, made by `MakeExporter`, has done to the values of `volume`, which it saved.
    virtual ValueMapping DescribeValues(const CVolumeExport& /*exporter*/, CVolume& /*volume*/) const { return {}; }

    // Of the Kit's formats:
    virtual std::string MakeHeader(const VoxelGrid& /*grid*/, bool /*gzip*/) const { return {}; }
    virtual std::string GetExtension(bool /*gzip*/) const { return GetExtensions().front(); }
    virtual bool CanCompress() const { return false; }
    virtual bool IsHeaderCompressed() const { return false; }  ///< with the voxels behind it
    virtual bool HoldsRescale() const { return false; }
    virtual bool HoldsTilt() const { return false; }
    virtual bool HoldsTimes() const { return false; }   ///< several volumes in one file
    virtual bool HoldsPlanes() const { return false; }  ///< a file for each plane, which says where it lies

    /// Throws `Error`, with the formats that would do, for pixels that this one has no form for or would hold as
    /// something else, and for more slices than it can count.
    void Check(const SeriesVolume& series, std::size_t slices) const;

protected:
    ExportFormat() = default;

    /// What has no form; "" when all has. This one speaks for pixels that are no grey values of 8 or 16 bits.
    virtual std::string FindFault(const SeriesVolume& series, std::size_t slices) const;
};

}  // namespace korvane
