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

class ExportFormat {
public:
    ExportFormat(const ExportFormat&) = delete;
    ExportFormat& operator=(const ExportFormat&) = delete;
    virtual ~ExportFormat() = default;

    /// Null for a name that is none. Names: analyze, bob, vox.
    static const ExportFormat* Find(const std::string& name);
    static std::vector<std::string> GetNames();

    virtual const char* GetName() const = 0;
    virtual std::unique_ptr<CVolumeExport> MakeExporter() const = 0;
    /// The file holds the slices from the last to the first.
    virtual bool IsLastFirst() const { return false; }
    /// Its values are rescaled ones.
    virtual bool IsRescaled() const { return false; }
    /// Never replaces files, but takes other names.
    virtual bool KeepsExisting() const { return false; }
    /// What `exporter`, made by `MakeExporter`, has done to the values of `volume`, which it saved.
    virtual ValueMapping DescribeValues(const CVolumeExport& exporter, CVolume& volume) const = 0;

    /// Throws `Error`, with the formats that would do, for pixels that this one has no form for or would hold as
    /// something else, and for more slices than it can count.
    void Check(const SeriesVolume& series, std::size_t slices) const;

protected:
    ExportFormat() = default;

    /// What has no form; "" when all has. This one speaks for pixels that are no grey values of 8 or 16 bits.
    virtual std::string FindFault(const SeriesVolume& series, std::size_t slices) const;
};

}  // namespace korvane
