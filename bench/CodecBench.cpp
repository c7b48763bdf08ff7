// usage: bench_codec [--rounds=N] [--frames=N] [--alone]
//
// Frames of 512 x 512 12-bit pixels through the codecs of the bundled module: decoding in this process beside `memcpy`
// of as many bytes, and whole runs of `korvane convert` beside dcmtk's programs where they are installed. Each round
// runs everything once; ratios are medians of the ratios within a round. Fails when an aim is missed. With --alone no other
// process is run.
#include "DcmtkRle.h"
#include "RowFile.h"

#include <Korvane/Dicom.h>
#include <codecs/LosslessJpegCodec.h>
#include <codecs/RleCodec.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::uint32_t kSide = 512;
constexpr std::size_t kFrameBytes = std::size_t{kSide} * kSide * 2;

struct Row {
    std::string name;
    std::size_t other;            // the row that it is compared with
    double aim;                   // the most that this row's time / the other's may be; 0 for no aim
    std::function<double()> job;  // returns seconds
    std::vector<double> seconds = {};
};

template <class Work>
double ProcessorSecondsOf(Work work) {
    const double begin = ProcessorSeconds();
    work();
    return ProcessorSeconds() - begin;
}

// Elapsed time, for what runs in other processes.
template <class Work>
double Timed(Work work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

DcmFrameFormat Format() {
    return {sizeof(DcmFrameFormat), kSide, kSide, 1, 16, 12, 11, 0, 0, 0, "MONOCHROME2"};
}

// Frames like those of a CT: soft shapes with noise, surrounded by air.
Bytes MakeFrames(std::size_t count) {
    Bytes pixels(count * kFrameBytes);
    std::uint32_t noise = 1;
    for (std::size_t i = 0; i < pixels.size() / 2; ++i) {
        const double x = static_cast<double>(i % kSide) - 256, y = static_cast<double>(i / kSide % kSide) - 256;
        noise = noise * 1664525 + 1013904223;
        const double radius = std::sqrt(x * x + y * y);
        const double value = radius > 230 ? 0 : 1024 + 60 * std::sin(radius / 12) + (noise >> 27);
        const auto sample = static_cast<std::uint16_t>(value);
        std::memcpy(&pixels[2 * i], &sample, 2);
    }
    return pixels;
}

template <class AnyCodec>
std::vector<Bytes> Encode(const Bytes& pixels) {
    std::vector<Bytes> streams(pixels.size() / kFrameBytes);
    for (std::size_t i = 0; i < streams.size(); ++i) {
        const auto append = [](void* out, const void* bytes, std::size_t size) {
            const auto* first = static_cast<const std::uint8_t*>(bytes);
            static_cast<Bytes*>(out)->insert(static_cast<Bytes*>(out)->end(), first, first + size);
            return 1;
        };
        DcmFrameFormat format = Format();
        AnyCodec().Encode(format, {&pixels[i * kFrameBytes], kFrameBytes}, FrameWriter(append, &streams[i]));
    }
    return streams;
}

template <class AnyCodec>
double DecodeAll(const std::vector<Bytes>& streams, std::uint8_t* out) {
    return ProcessorSecondsOf([&] {
        for (std::size_t i = 0; i < streams.size(); ++i) {
            DcmFrameFormat format = Format();
            AnyCodec().Decode(format, streams[i], {out + i * kFrameBytes, kFrameBytes});
        }
    });
}

// A multi-frame file of explicit VR little endian.
void WriteNative(const std::string& path, const Bytes& pixels) {
    std::string data;
    const auto add = [&](tags::Tag tag, const char* vr, std::string value) {
        if (value.size() % 2 != 0) value += vr[0] == 'U' && vr[1] == 'I' ? '\0' : ' ';
        for (const unsigned part : {tags::GroupOf(tag), tags::ElementOf(tag)})
            data += {static_cast<char>(part), static_cast<char>(part >> 8)};
        data += vr;
        data += {static_cast<char>(value.size()), static_cast<char>(value.size() >> 8)};
        data += value;
    };
    const auto number = [](unsigned value) {
        return std::string{static_cast<char>(value), static_cast<char>(value >> 8)};
    };
    add(tags::MediaStorageSOPClassUID, "UI", "1.2.840.10008.5.1.4.1.1.7.3");
    add(tags::MediaStorageSOPInstanceUID, "UI", "2.25.1");
    add(tags::TransferSyntaxUID, "UI", "1.2.840.10008.1.2.1");
    const std::string meta = data;
    data.clear();
    add(tags::FileMetaInformationGroupLength, "UL", number(static_cast<unsigned>(meta.size())) + number(0));
    data += meta;
    add(tags::SOPClassUID, "UI", "1.2.840.10008.5.1.4.1.1.7.3");
    add(tags::SOPInstanceUID, "UI", "2.25.1");
    add(tags::StudyInstanceUID, "UI", "2.25.2");
    add(tags::SeriesInstanceUID, "UI", "2.25.3");
    add(tags::SamplesPerPixel, "US", number(1));
    add(tags::PhotometricInterpretation, "CS", "MONOCHROME2");
    add(tags::NumberOfFrames, "IS", std::to_string(pixels.size() / kFrameBytes));
    const std::pair<tags::Tag, unsigned> numbers[] = {{tags::Rows, kSide},       {tags::Columns, kSide},
                                                      {tags::BitsAllocated, 16}, {tags::BitsStored, 12},
                                                      {tags::HighBit, 11},       {tags::PixelRepresentation, 0}};
    for (const auto& [tag, value] : numbers) add(tag, "US", number(value));
    data += std::string("\xE0\x7F\x10\x00OW\0\0", 8) + number(pixels.size() & 0xFFFF) +
            number(static_cast<unsigned>(pixels.size() >> 16));
    std::ofstream file(path, std::ios::binary);
    file << std::string(128, '\0') << "DICM" << data;
    file.write(reinterpret_cast<const char*>(pixels.data()), static_cast<std::streamsize>(pixels.size()));
}

double Run(std::initializer_list<std::string> words) {
    std::string command;
    for (const std::string& word : words) command.append(word).append(" ");
    int status = 0;
    const double seconds = Timed([&] { status = std::system(command.c_str()); });
    if (status != 0) std::fprintf(stderr, "failed: %s\n", command.c_str());
    return seconds;
}

bool IsInstalled(const std::string& program) {
    return std::system(("command -v " + program + " > /dev/null").c_str()) == 0;
}

void AddPrograms(std::vector<Row>& rows, const std::string& folder, const std::string& korvane) {
    const struct {
        const char* syntax;
        const char* peer;
        double aim;
    } pairs[] = {{"rle", "dcmdrle", 1 / 1.5}, {"jpegll", "dcmdjpeg", 1 / 1.2}};
    for (const auto& pair : pairs) {
        const std::string peer = pair.peer, native = folder + "/native.dcm",
                          packed = folder + "/" + pair.syntax + ".dcm";
        if (!IsInstalled(korvane) || !IsInstalled(peer)) continue;
        Run({korvane, "convert", native, packed, "--syntax", pair.syntax});
        rows.push_back({peer, rows.size(), 0, [=] { return Run({peer, packed, folder + "/peer.dcm"}); }});
        rows.push_back({std::string("korvane convert, ") + pair.syntax, rows.size() - 1, pair.aim, [=] {
                            return Run({korvane, "convert", packed, folder + "/ours.dcm"});
                        }});
    }
}

int Print(const std::vector<Row>& rows) {
    int missed = 0;
    std::printf("%-28s %9s\n", "", "ms");
    for (const Row& row : rows) {
        std::printf("%-28s %9.1f", row.name.c_str(), Median(row.seconds) * 1e3);
        const Row& other = rows[row.other];
        if (row.other == 0 && &row != &other) {
            TellRow({"bench_codec", "decode, " + row.name, "memcpy", row.seconds, other.seconds});
        }
        std::vector<double> ratios;
        for (std::size_t i = 0; i < row.seconds.size(); ++i) ratios.push_back(row.seconds[i] / other.seconds[i]);
        if (&row != &other) std::printf("   %6.2f x %s", Median(ratios), other.name.c_str());
        if (row.aim > 0) {
            const bool met = Median(ratios) <= row.aim;
            std::printf(", at most %.2f: %s", row.aim, met ? "met" : "MISSED");
            missed += met ? 0 : 1;
        }
        std::printf("\n");
    }
    return missed;
}

}  // namespace

int main(int argc, char** argv) {
    int rounds = 5, frames = 200;
    bool alone = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--alone") {
            alone = true;
            continue;
        }
        const std::size_t value = argument.find('=') + 1;
        int& target = argument.starts_with("--frames=") ? frames : rounds;
        std::from_chars(argument.data() + value, argument.data() + argument.size(), target);
    }
    const Bytes pixels = MakeFrames(static_cast<std::size_t>(std::max(frames, 1)));
    Bytes out(pixels.size());
    const std::vector<Bytes> rle = Encode<RleCodec>(pixels), lossless = Encode<LosslessJpegCodec>(pixels);
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "korvane-bench-codec";
    std::filesystem::create_directories(folder);
    WriteNative((folder / "native.dcm").string(), pixels);

    std::vector<Row> rows;
    rows.push_back({"memcpy", 0, 0, [&] {
                        return ProcessorSecondsOf([&] { std::memcpy(out.data(), pixels.data(), pixels.size()); });
                    }});
    rows.push_back({"RLE", 0, 4, [&] { return DecodeAll<RleCodec>(rle, out.data()); }});
    rows.push_back({"lossless JPEG", 0, 0, [&] { return DecodeAll<LosslessJpegCodec>(lossless, out.data()); }});
    if (!alone) AddPrograms(rows, folder.string(), (std::filesystem::path(argv[0]).parent_path() / "korvane").string());
    const std::string rleFile = (folder / "rle.dcm").string();
    if (kHasDcmtkRle && std::filesystem::exists(rleFile)) {
        rows.push_back({"dcmtk, RLE in memory", rows.size(), 0, [&] { return SecondsOfDcmtkRle(rleFile); }});
        rows.push_back({"RLE into fresh memory", rows.size() - 1, 0.5, [&] {
                            std::unique_ptr<std::uint8_t[]> fresh;
                            const double taking =
                                ProcessorSecondsOf([&] { fresh.reset(new std::uint8_t[pixels.size()]); });
                            return taking + DecodeAll<RleCodec>(rle, fresh.get());
                        }});
    }
    for (int round = 0; round < std::max(rounds, 1); ++round) {
        for (Row& row : rows) row.seconds.push_back(row.job());
    }
    std::filesystem::remove_all(folder);
    return Print(rows) > 0 ? 1 : 0;
}
