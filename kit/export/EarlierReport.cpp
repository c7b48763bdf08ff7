#include "EarlierReport.h"

#include "../core/Error.h"
#include "../core/Paths.h"

#include "platform/File.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>
#include <tuple>
#include <vector>
#include <zlib.h>

namespace korvane {

namespace fs = std::filesystem;

namespace {

using Json = nlohmann::json;

/// A series in one run and the next: rows may have changed.
using Identity = std::tuple<std::string, std::string, std::size_t>;

Json ReadReport(const std::string& path) {
    std::ifstream file(PathFromText(path), std::ios::binary);
    if (!file) throw Error(ErrorKind::Disk, "cannot read the report " + path).InFile(path);
    Json json = Json::parse(file, nullptr, false);
    if (!json.is_object() || json.value("schema", Json()) != "korvane.export-all" ||
        json.value("version", Json()) != 1 || !json["series"].is_array()) {
        throw Error(ErrorKind::Damaged, path + ": no report of an export of all series").InFile(path);
    }
    return json;
}

std::vector<ExportOutput> OutputsOf(const Json& series) {
    std::vector<ExportOutput> outputs;
    for (const Json& output : series.at("outputs")) {
        ExportOutput one{output.at("file").get<std::string>(), output.at("size").get<std::uint64_t>()};
        one.crc = static_cast<std::uint32_t>(std::stoul(output.at("crc32").get<std::string>(), nullptr, 16));
        outputs.push_back(std::move(one));
    }
    return outputs;
}

/// The checksum of a file; none of one that cannot be read.
std::optional<std::uint32_t> ChecksumOf(const std::string& path, const Watch& watch) {
    platform::InputFile file;
    file.SetStopQuestion(watch.GetStopQuestion());
    if (!file.Open(path.c_str())) return std::nullopt;
    std::vector<unsigned char> bytes(std::size_t{1} << 20);
    uLong crc = crc32(0, nullptr, 0);
    for (std::size_t read = bytes.size(); read == bytes.size();) {
        read = file.Read(bytes.data(), bytes.size());
        crc = crc32(crc, bytes.data(), static_cast<uInt>(read));
    }
    watch.StopIfAsked();
    if (file.HasFailed()) return std::nullopt;
    return static_cast<std::uint32_t>(crc);
}

/// With the bytes that were written.
bool AreThere(const std::vector<ExportOutput>& outputs, const Watch& watch) {
    for (const ExportOutput& output : outputs) {
        std::error_code error;
        if (fs::file_size(PathFromText(output.name), error) != output.size || error) return false;
        if (ChecksumOf(output.name, watch) != output.crc) return false;
    }
    return !outputs.empty();
}

std::map<Identity, std::vector<ExportOutput>> ReadDone(const Json& json) {
    std::map<Identity, std::vector<ExportOutput>> done;
    for (const Json& series : json["series"]) {
        const std::string status = series.at("status");
        if (status != "written" && status != "whole") continue;
        done[{series.at("uid"), series.at("firstFile"), series.at("images")}] = OutputsOf(series);
    }
    return done;
}

}  // namespace

void PassOverWhole(ExportAllReport& report, const std::string& path, const Watch& watch) {
    std::error_code error;
    if (!fs::exists(PathFromText(path), error)) return;
    const Json json = ReadReport(path);
    // Of a dry run nothing is there; of another place nothing is here.
    if (json.value("format", "") != report.format || json.value("destination", "") != report.destination) return;
    std::map<Identity, std::vector<ExportOutput>> done;
    try {
        done = ReadDone(json);
    } catch (const std::exception&) {  // members that are missing or of another type
        throw Error(ErrorKind::Damaged, path + ": no report of an export of all series").InFile(path);
    }
    for (ExportedSeries& series : report.series) {
        const auto found = done.find({series.uid, series.firstFile, series.images});
        if (found == done.end() || !AreThere(found->second, watch)) continue;
        series.status = ExportedSeries::Status::Whole;
        series.outputs = found->second;
    }
}

}  // namespace korvane
