#include "Rows.h"

#include "Stream.h"

#include <Korvane/Dicom.h>
#include <Korvane/export/CAnalyzeVolume.h>
#include <Korvane/platform/File.h>
#include <Korvane/platform/memory/Memory.h>
#include <Korvane/series/CDicomVolume.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

constexpr std::size_t kSliceBytes = Series::kSlicePixels * sizeof(std::uint16_t);

// ---- Limits

// Reads each file whole into one buffer and copies the pixels, which stand at the file's end, into `volume`.
void ReadAndCopy(const Series& series, unsigned char* volume) {
    std::vector<unsigned char> file(kSliceBytes + (std::size_t{1} << 16));
    for (const std::string& path : series.GetFiles()) {
        platform::InputFile input;
        if (!input.Open(path.c_str())) throw std::runtime_error("cannot open " + path);
        const std::size_t got = input.Read(file.data(), file.size());
        std::memcpy(volume, file.data() + got - kSliceBytes, kSliceBytes);
        volume += kSliceBytes;
    }
}

std::shared_ptr<unsigned char> ReadIntoPlainPages(const Series& series) {
    std::shared_ptr<unsigned char> volume(new unsigned char[Series::kVolumeBytes],
                                          std::default_delete<unsigned char[]>());
    ReadAndCopy(series, volume.get());
    return volume;
}

std::shared_ptr<unsigned char> ReadIntoHugePages(const Series& series) {
    std::shared_ptr<unsigned char> volume(static_cast<unsigned char*>(platform::AllocateBuffer(Series::kVolumeBytes)),
                                          platform::FreeBuffer);
    ReadAndCopy(series, volume.get());
    return volume;
}

void ReadFirstPages(const Series& series) {
    unsigned char page[4096];
    for (const std::string& path : series.GetFiles()) {
        platform::InputFile input;
        if (!input.Open(path.c_str()) || input.Read(page, sizeof page) != sizeof page) {
            throw std::runtime_error("cannot read " + path);
        }
    }
}

// Steps from header to header, into every item.
std::size_t CountElements(const unsigned char* bytes, std::size_t size) {
    constexpr std::size_t kPreamble = 132;
    const ElementHeaderReader reader(true, false);
    std::size_t count = 0;
    for (std::size_t at = kPreamble; at + ElementHeaderReader::kShortest <= size;) {
        const ElementHeader header = reader.Decode(bytes + at);
        at += header.size + (header.HasUndefinedLength() || header.IsDelimiter() ? 0 : header.length);
        if (!header.IsDelimiter()) ++count;
    }
    return count;
}

std::size_t ReadAndStep(const std::vector<std::string>& files) {
    unsigned char bytes[64 * 1024];
    std::size_t count = 0;
    for (const std::string& path : files) {
        platform::InputFile input;
        if (!input.Open(path.c_str())) throw std::runtime_error("cannot open " + path);
        count += CountElements(bytes, input.Read(bytes, sizeof bytes));
    }
    return count;
}

void SwapAndWrite(const std::uint16_t* volume, const std::string& path) {
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) throw std::runtime_error("cannot open " + path);
    std::setvbuf(file, nullptr, _IONBF, 0);
    std::vector<std::uint16_t> block(Series::kSlicePixels);
    for (int slice = Series::kSlices; slice-- > 0;) {
        const std::uint16_t* const pixels = volume + static_cast<std::size_t>(slice) * Series::kSlicePixels;
        for (std::size_t i = 0; i < block.size(); ++i) {
            block[i] = static_cast<std::uint16_t>(pixels[i] << 8 | pixels[i] >> 8);
        }
        std::fwrite(block.data(), sizeof block[0], block.size(), file);
    }
    if (std::fclose(file) != 0) throw std::runtime_error("cannot write " + path);
}

// ---- Rows

// Adds the reader's entry to the row, unless `check`, which runs its work once, fails; that is told on standard error.
template <class Check>
void AddReader(Row& row, const Reader& reader, Check check, Entry::Job job) {
    try {
        if (!check()) throw std::runtime_error("wrong result");
        row.entries.push_back({reader.GetName(), std::move(job)});
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s left out of \"%s\": %s\n", reader.GetName().c_str(), row.name.c_str(), failure.what());
    }
}

// Makes a job of work that leaves nothing to be freed later.
template <class Work>
Entry::Job Whole(Work work) {
    return [work] {
        work();
        return std::shared_ptr<void>();
    };
}

Row MakeRoadRow(const Series& series, const Readers& readers, bool freed) {
    Row row{freed ? "road, freed" : "road", "read, copy into fresh memory", Series::kSlices, {}, {}};
    if (!freed) row.aim = {.mostOfLimit = 1.3, .leastOfDcmtk = 1, .leastOfGdcm = 1};
    const auto add = [freed](const Entry::Job& job) { return freed ? Whole(job) : job; };
    row.entries.push_back({"limit", add([&series] { return ReadIntoPlainPages(series); })});
    const auto truth = ReadIntoPlainPages(series);
    for (const auto& each : readers) {
        Reader& reader = *each;
        const auto check = [&] {
            return std::memcmp(reader.ReadVolume(series)->GetPixels(), truth.get(), Series::kVolumeBytes) == 0;
        };
        AddReader(row, reader, check, add([&] { return std::shared_ptr<void>(reader.ReadVolume(series)); }));
    }
    row.entries.push_back({"limit with huge pages", add([&series] { return ReadIntoHugePages(series); })});
    return row;
}

Row MakeHeadersRow(const Series& series, const Readers& readers) {
    Row row{"headers", "read the first 4 KB", Series::kSlices, {.leastOfDcmtk = 2}, {}};
    row.entries.push_back({"limit", Whole([&series] { ReadFirstPages(series); })});
    for (const auto& each : readers) {
        Reader& reader = *each;
        const auto work = [&] {
            for (const std::string& path : series.GetFiles()) reader.ReadHeader(path);
        };
        const auto check = [&] {
            work();
            return true;
        };
        AddReader(row, reader, check, Whole(work));
    }
    return row;
}

// Small files, with their pixels.
Row MakeWholeFilesRow(const Series& series) {
    constexpr std::size_t kFiles = 150;
    const auto files = std::make_shared<std::vector<std::string>>();
    const std::string bytes = MakeSmallFile();
    for (std::size_t i = 0; i < kFiles; ++i) {
        files->push_back((series.GetFolder() / ("small" + std::to_string(1000 + i))).string());
        std::ofstream(files->back(), std::ios::binary) << bytes;
    }
    Row row{"whole small files", "read, step from element to element", kFiles, {.mostOfLimit = 2.5}, {}};
    row.entries.push_back({"limit", Whole([files] { ReadAndStep(*files); })});
    const auto load = [files] {
        TransferSyntaxCodec codec;
        DICOMFileReader reader(codec);
        for (const std::string& path : *files) {
            if (reader.Load(path.c_str()) == nullptr || !reader.IsComplete())
                throw std::runtime_error("cannot load " + path);
        }
    };
    row.entries.push_back({"Korvane", Whole(load)});
    return row;
}

// Parsing and freeing `stream`; `result` is what every reader must return for it. The limit is a copy of the bytes.
Row MakeParseRow(std::string name, std::string bytes, std::size_t units, std::size_t result, const Readers& readers) {
    const auto stream = std::make_shared<const std::string>(std::move(bytes));
    Row row{std::move(name), "copy the bytes", units, {}, {}};
    row.entries.push_back({"limit", [stream] { return std::make_shared<std::string>(*stream); }});
    for (const auto& each : readers) {
        Reader& reader = *each;
        AddReader(
            row, reader, [&] { return reader.Parse(*stream) == result; },
            Whole([&reader, stream] { reader.Parse(*stream); }));
    }
    return row;
}

// Shows that parsing time is proportional to the number of elements: the limit is this library with a tenth of them.
Row MakeLinearRow(std::string name, std::size_t elements, Reader& reader) {
    const auto small = std::make_shared<const std::string>(MakeNestedStream(elements / 10, true));
    const auto large = std::make_shared<const std::string>(MakeNestedStream(elements, true));
    const auto parse = [&reader](const std::shared_ptr<const std::string>& stream) {
        return Whole([&reader, stream] { reader.Parse(*stream); });
    };
    return {std::move(name),
            "a tenth of the elements",
            elements,
            {.mostOfLimit = 11},
            {{"limit", parse(small)}, {reader.GetName(), parse(large)}}};
}

// A series read once, its volume, and a place for the files.
struct ExportSource {
    explicit ExportSource(const Series& series) : folder(series.GetFolder().string()) {
        std::vector<DICOMDataObject*> list;
        for (const std::string& path : series.GetFiles()) {
            dataSets.emplace_back(LoadDICOMFile(path.c_str()));
            list.push_back(dataSets.back().get());
        }
        volume.SetIODList(list, nullptr);
        volume.Alloc(true);
    }
    const std::uint16_t* GetPixels() { return static_cast<const std::uint16_t*>(volume.GetVolume()->GetVolumePt()); }

    std::string folder;
    std::vector<std::unique_ptr<DICOMDataObject>> dataSets;
    CDicomVolume volume;
};

std::string FileContent(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Row MakeExportRow(std::string name, CVolume::PixelType type, const std::shared_ptr<ExportSource>& source,
                  const Reader& reader) {
    Row row{std::move(name), "swap and write 512 KB blocks", Series::kSlices, {.mostOfLimit = 1.2}, {}};
    const auto save = [source, type] {
        source->volume.GetVolume()->SetType(type);
        CAnalyzeVolume exporter;
        exporter = source->volume;
        if (!exporter.Save(source->folder.c_str(), "ours")) throw std::runtime_error("cannot save");
    };
    const auto limit = [source] { SwapAndWrite(source->GetPixels(), source->folder + "/limit.img"); };
    row.entries.push_back({"limit", Whole(limit)});
    const auto check = [&] {
        save();
        limit();
        // Unsigned voxels are shifted as they are written, which the limit does not do.
        return type == CVolume::PT_USHORT ||
               FileContent(source->folder + "/ours.img") == FileContent(source->folder + "/limit.img");
    };
    AddReader(row, reader, check, Whole(save));
    return row;
}

}  // namespace

std::vector<Row> MakeRows(const Series& series, const Readers& readers) {
    constexpr std::size_t kElements = 200'000;
    constexpr std::size_t kPrivate = 20'000;
    std::vector<Row> rows;
    rows.push_back(MakeRoadRow(series, readers, false));
    rows.push_back(MakeRoadRow(series, readers, true));
    rows.push_back(MakeHeadersRow(series, readers));
    rows.push_back(MakeWholeFilesRow(series));
    rows.push_back(
        MakeParseRow("elements, explicit", MakeNestedStream(kElements, true), kElements, kElements / 200, readers));
    rows.back().aim = {.leastOfDcmtk = 7, .leastOfGdcm = 4, .leastPerSecond = 6e6};
    rows.push_back(MakeParseRow("elements, report", MakeReportStream(kElements), kElements, kElements / 200, readers));
    rows.back().aim = {.leastOfDcmtk = 7, .leastOfGdcm = 4, .leastPerSecond = 6e6};
    rows.push_back(
        MakeParseRow("elements, implicit", MakeNestedStream(kElements, false), kElements, kElements / 200, readers));
    rows.push_back(MakeParseRow("private, ascending", MakePrivateStream(kPrivate, false), kPrivate, kPrivate, readers));
    rows.push_back(MakeParseRow("private, descending", MakePrivateStream(kPrivate, true), kPrivate, kPrivate, readers));
    rows.push_back(MakeLinearRow("elements, 20k to 200k", 200'000, *readers.front()));
    rows.back().aim.mostOfLimit = 16;  // the smaller one fits into the memory that a thread keeps
    rows.push_back(MakeLinearRow("elements, 200k to 2M", 2'000'000, *readers.front()));
    const auto source = std::make_shared<ExportSource>(series);
    rows.push_back(MakeExportRow("export, signed", CVolume::PT_SHORT, source, *readers.front()));
    rows.push_back(MakeExportRow("export, unsigned", CVolume::PT_USHORT, source, *readers.front()));
    return rows;
}
