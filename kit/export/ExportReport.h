// The report of `korvane export` for programs.
#pragma once

#include "../core/ExportFiles.h"
#include "ExportFormat.h"
#include "IrregularPolicy.h"

#include <array>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace korvane {

class SeriesVolume;

/// Where an exported volume lies, millimetres in patient axes (LPS).
struct ExportGeometry {
    std::array<int, 3> size{};                     ///< columns, rows, slices
    std::array<double, 3> spacing{};               ///< as the file has it
    std::array<double, 6> cosines{};               ///< directions of rows and columns
    std::vector<std::array<double, 3>> positions;  ///< first voxel of each slice, in the file's order

    ExportGeometry(const SeriesVolume& series, CDicomVolume& assembled, bool lastFirst);
};

/// One JSON object: "schema" ("korvane.export"), "version" (1; it grows when a member changes its meaning or goes),
/// "status" ("done", "dry run" or "failed", then with "error"), what was read and what was left out and why, and each
/// volume with its geometry, its values and its files. Passwords are not in it.
class ExportReport {
public:
    ExportReport();
    ~ExportReport();
    ExportReport(const ExportReport&) = delete;
    ExportReport& operator=(const ExportReport&) = delete;

    void SetTask(const std::string& format, const Destination& destination, const std::string& policy);
    void AddSeries(const SeriesVolume& series, const ExportPlan& plan);
    void AddVolume(SeriesVolume& series, const ExportPart& part, const ExportGeometry& geometry,
                   const ValueMapping& mapping);
    /// The last volume's files.
    void AddOutput(const ExportOutput& output);
    void SetStatus(const std::string& status, const std::string& error = {});

    std::string GetText() const;

private:
    std::unique_ptr<nlohmann::ordered_json> m_pJson;
};

}  // namespace korvane
