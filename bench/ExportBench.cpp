// usage: bench_export [--rounds=N] [--size=N] [--slices=N] [--folder=DIR] [--url=ftp:USER%PASSWORD@HOST/PATH]
//
// Each format and pixel type saved to a folder, beside the floor: the same voxels converted by a plain loop in blocks
// of 512 KB, each written with one call. Each round runs everything once, so that what disturbs the machine disturbs
// all; ratios are medians of the ratios within a round. Fails when an aim is missed.
//
// With --url it measures FTP alone: saves an Analyze pair below the URL and prints the rate (see ftp_rate.py).
#include "RowFile.h"

#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr double kMost = 1.2;
constexpr std::size_t kBlock = 512 * 1024;

struct Settings {
    int rounds = 9, size = 512, slices = 64;
    fs::path folder = fs::temp_directory_path() / "korvane_bench_export";
    std::string url;
};

// A series made from one small data set. Its volume is then replaced by one of the wanted type and size, filled with
// noise.
class Input {
public:
    Input(const Settings& settings, CVolume::PixelType type, const char* slope) {
        AddText(tags::RescaleIntercept, "-1000");
        AddText(tags::RescaleSlope, slope);
        AddNumber(tags::Rows, 1);
        AddNumber(tags::Columns, 1);
        for (const tags::Tag tag : {tags::BitsAllocated, tags::BitsStored}) AddNumber(tag, 16);
        AddNumber(tags::HighBit, 15);
        AddNumber(tags::PixelData, 0);
        std::vector<DICOMDataObject*> list{&m_DataSet};
        m_Series.SetIODList(list, nullptr);
        CVolume& volume = *m_Series.GetVolume();
        volume.Init(type, settings.size, settings.size, settings.slices, 1);
        volume.Alloc(true);
        m_Bytes = static_cast<std::size_t>(settings.size) * settings.size * settings.slices * volume.GetTypeSize();
        auto* const bytes = static_cast<unsigned char*>(volume.GetVolumePt());
        std::uint32_t noise = 1;
        for (std::size_t i = 0; i < m_Bytes; ++i) {
            noise = noise * 1664525U + 1013904223U;
            bytes[i] = static_cast<unsigned char>(type != CVolume::PT_BYTE && i % 2 == 1 ? noise >> 29 : noise >> 24);
        }
        volume.SetMax(slope[0] == '0' ? 30000 : 2047);  // a range above 4096 makes the vox exporter divide by 16
    }
    CDicomVolume& GetSeries() { return m_Series; }
    const void* GetVoxels() { return m_Series.GetVolume()->GetVolumePt(); }
    std::size_t GetBytes() const { return m_Bytes; }

private:
    void AddText(tags::Tag tag, const std::string& text) {
        auto* const vr = new VR(tag, static_cast<std::uint32_t>(text.size()), 1);
        std::copy(text.begin(), text.end(), vr->m_pData);
        m_DataSet.Push(vr);
    }
    void AddNumber(tags::Tag tag, char value) { AddText(tag, {value, '\0'}); }

    DICOMDataObject m_DataSet;
    CDicomVolume m_Series;
    std::size_t m_Bytes = 0;
};

std::uint16_t Swap(int value) {
    return static_cast<std::uint16_t>((value << 8) | ((value >> 8) & 0xFF));
}

// The floor: voxels converted one by one, with the arithmetic that the format asks for.
template <class Voxel, class Convert>
void WriteConverted(const fs::path& path, Input& input, Convert convert) {
    using Stored = decltype(convert(Voxel{}));
    const auto* const voxels = static_cast<const Voxel*>(input.GetVoxels());
    const std::size_t count = input.GetBytes() / sizeof(Voxel), block = kBlock / sizeof(Stored);
    std::vector<Stored> out(block);
    std::FILE* const file = std::fopen(path.string().c_str(), "wb");
    if (file == nullptr) std::exit(2);
    std::setvbuf(file, nullptr, _IONBF, 0);
    for (std::size_t start = 0; start < count; start += block) {
        const std::size_t here = std::min(block, count - start);
        for (std::size_t i = 0; i < here; ++i) out[i] = convert(voxels[start + i]);
        std::fwrite(out.data(), sizeof(Stored), here, file);
    }
    std::fclose(file);
}

struct Row {
    const char* name;
    CVolume::PixelType type;
    const char* slope;
    std::unique_ptr<CVolumeExport> exporter;
    std::function<void(const fs::path&, Input&)> floor;
    std::vector<double> seconds = {}, floorSeconds = {}, ratios = {};
};

template <class Voxel, class Convert>
auto Floor(Convert convert) {
    return [convert](const fs::path& path, Input& input) { WriteConverted<Voxel>(path, input, convert); };
}

template <class Voxel>
auto Mapped(double slope) {
    return Floor<Voxel>([slope](Voxel v) { return Swap(std::clamp(static_cast<int>(v * slope - 1000), 0, 32767)); });
}

std::vector<Row> MakeRows() {
    using Short = std::int16_t;
    using Word = std::uint16_t;
    using Byte = std::uint8_t;
    const auto same = [](Byte v) { return v; };
    std::vector<Row> rows;
    const auto add = [&rows](const char* name, CVolume::PixelType type, const char* slope, CVolumeExport* exporter,
                             std::function<void(const fs::path&, Input&)> floor) {
        rows.push_back({name, type, slope, std::unique_ptr<CVolumeExport>(exporter), std::move(floor)});
    };
    add("analyze, signed", CVolume::PT_SHORT, "1", new CAnalyzeVolume, Floor<Short>([](Short v) { return Swap(v); }));
    add("analyze, unsigned", CVolume::PT_USHORT, "1", new CAnalyzeVolume,
        Floor<Word>([](Word v) { return Swap(v - 32767); }));
    add("analyze, 8 bits", CVolume::PT_BYTE, "1", new CAnalyzeVolume, Floor<Byte>(same));
    add("bob, signed, slope 1", CVolume::PT_SHORT, "1", new CCBobVolume, Mapped<Short>(1));
    add("bob, signed, slope 0.7", CVolume::PT_SHORT, "0.7", new CCBobVolume, Mapped<Short>(0.7));
    add("bob, unsigned, slope 1", CVolume::PT_USHORT, "1", new CCBobVolume, Mapped<Word>(1));
    add("bob, 8 bits", CVolume::PT_BYTE, "1", new CCBobVolume, Floor<Byte>([](Byte v) { return Swap(v); }));
    add("vox, signed", CVolume::PT_SHORT, "1", new CRTVizVolume,
        Floor<Short>([](Short v) { return static_cast<Word>(v); }));
    add("vox, signed, divided", CVolume::PT_SHORT, "0.5", new CRTVizVolume,
        Floor<Short>([](Short v) { return static_cast<Word>(static_cast<float>(v) * 0.0625F); }));
    add("vox, unsigned", CVolume::PT_USHORT, "1", new CRTVizVolume, Floor<Word>([](Word v) { return v; }));
    add("vox, 8 bits", CVolume::PT_BYTE, "1", new CRTVizVolume, Floor<Byte>(same));
    return rows;
}

double Time(const std::function<void()>& job) {
    const double start = ProcessorSeconds();
    job();
    return ProcessorSeconds() - start;
}

// Runs one save and one floor, each into an empty folder. They take turns in going first.
void RunOnce(const Settings& settings, Row& row, bool floorFirst) {
    Input input(settings, row.type, row.slope);
    *row.exporter = input.GetSeries();
    double seconds[2];
    for (const bool isFloor : {floorFirst, !floorFirst}) {
        fs::remove_all(settings.folder);
        fs::create_directories(settings.folder);
        seconds[isFloor ? 1 : 0] = Time([&] {
            if (isFloor) {
                row.floor(settings.folder / "floor", input);
            } else if (!row.exporter->SaveUrl(("file:" + settings.folder.string() + "\\vol").c_str())) {
                std::exit(2);
            }
        });
    }
    row.seconds.push_back(seconds[0]);
    row.floorSeconds.push_back(seconds[1]);
    row.ratios.push_back(seconds[0] / seconds[1]);
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

int MeasureFtp(const Settings& settings) {
    Input input(settings, CVolume::PT_SHORT, "1");
    CAnalyzeVolume exporter;
    exporter = input.GetSeries();
    bool saved = false;
    const double seconds = Time([&] { saved = exporter.SaveUrl(settings.url.c_str()); });
    std::printf("%.1f\n", static_cast<double>(input.GetBytes()) / seconds / 1e6);
    return saved ? 0 : 1;
}

bool Take(std::string_view word, Settings& settings) {
    const auto after = [word](std::string_view name) {
        return std::string(word.substr(std::min(name.size(), word.size())));
    };
    for (const auto& [name, number] : {std::pair{"--rounds=", &settings.rounds}, std::pair{"--size=", &settings.size},
                                       std::pair{"--slices=", &settings.slices}}) {
        if (word.starts_with(name)) return (*number = std::atoi(after(name).c_str())) > 0;
    }
    if (word.starts_with("--folder=")) return settings.folder = after("--folder="), true;
    if (word.starts_with("--url=")) return settings.url = after("--url="), true;
    return false;
}

}  // namespace

int main(int count, char** words) {
    Settings settings;
    for (int i = 1; i < count; ++i) {
        if (!Take(words[i], settings)) return std::fprintf(stderr, "bench_export: what is %s?\n", words[i]), 2;
    }
    if (!settings.url.empty()) return MeasureFtp(settings);
    std::vector<Row> rows = MakeRows();
    for (int round = 0; round < settings.rounds; ++round) {
        for (Row& row : rows) RunOnce(settings, row, round % 2 == 0);
    }
    fs::remove_all(settings.folder);
    std::printf("%-26s %8s %12s %6s\n", "export", "seconds", "x the floor", "aim");
    bool failed = false;
    for (const Row& row : rows) {
        TellRow({"bench_export", std::string("save, ") + row.name, "a plain loop writing blocks", row.seconds,
                 row.floorSeconds});
        const double ratio = Median(row.ratios);
        failed |= ratio > kMost;
        std::printf("%-26s %8.3f %12.2f %6.1f%s\n", row.name, Median(row.seconds), ratio, kMost,
                    ratio > kMost ? "  missed" : "");
    }
    return failed ? 1 : 0;
}
