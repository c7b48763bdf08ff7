#include "ImageJob.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "../study/FoundFiles.h"
#include "ContactSheet.h"
#include "Draw.h"
#include "PictureFile.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>

namespace korvane {

namespace {

std::string RangeText(std::size_t count) {
    return "0 to " + std::to_string(count - 1);
}

}  // namespace

ImageJob::ImageJob(const Series& series, int volume, const SliceOptions& options, const std::string& output)
    : m_Options(options), m_Output(output), m_Watch(options.watcher), m_Files(Destination{}, m_Watch) {
    if (options.slab > 0 || options.pixelSize > 0 || options.uptake) {
        throw Error(ErrorKind::WrongArgument,
                    "slabs, millimetres of a pixel and uptake values are for planes through a volume");
    }
    const FoundFiles& found = series.GetFiles();
    const VolumeSets& sets = series.GetFound().sets;
    if (volume < 0 || (volume > 0 && static_cast<std::size_t>(volume) > sets.volumes.size())) {
        throw Error(ErrorKind::WrongArgument, "there is no volume " + std::to_string(volume) + ": the series makes " +
                                                  std::to_string(sets.volumes.size()));
    }
    const auto& slices = volume > 0 ? sets.volumes[static_cast<std::size_t>(volume) - 1] : series.GetFound().slices;
    for (const SliceRef& slice : slices) {
        const ImageHeader& header = found.files[slice.file];
        const bool isWhole = slice.frame < 0;
        m_Images.push_back({header.GetFile(), isWhole ? 0 : slice.frame,
                            isWhole ? static_cast<std::size_t>(header.frames) : std::size_t{1},
                            header.PixelBytes() > std::numeric_limits<std::uint32_t>::max() && !header.IsTiled()});
    }
}

ImageJob::ImageJob(const std::string& path, const SliceOptions& options)
    : m_Options(options), m_Watch(options.watcher), m_pFile(std::make_unique<ImageFile>(path, m_Watch)),
      m_Files(Destination{}, m_Watch) {
    m_Images.push_back({NamedFile(path), 0, static_cast<std::size_t>(m_pFile->CountFrames())});
}

std::size_t ImageJob::CountImages() const {
    std::size_t count = 0;
    for (const Images& images : m_Images) count += images.count;
    return count;
}

std::size_t ImageJob::ChooseIndex() const {
    const std::size_t count = CountImages();
    if (!m_Options.index) return count / 2;
    if (*m_Options.index < 0 || static_cast<std::size_t>(*m_Options.index) >= count) {
        throw Error(ErrorKind::WrongArgument,
                    "there is no image " + std::to_string(*m_Options.index) + ": there are " + RangeText(count));
    }
    return static_cast<std::size_t>(*m_Options.index);
}

ImagePainter ImageJob::PainterOf(std::size_t index) {
    auto images = m_Images.begin();
    for (; index >= images->count; ++images) index -= images->count;
    if (images->isTooLarge) return PainterOfFrame(images->file, images->firstFrame + static_cast<int>(index));
    if (m_pFile == nullptr || m_pFile->GetHeader().GetFile().place != images->file.place) {
        m_pFile.reset();  // its memory is wanted for the next one
        m_pFile = std::make_unique<ImageFile>(images->file, m_Watch);
    }
    const int frame = images->firstFrame + static_cast<int>(index);
    if (frame >= m_pFile->CountFrames()) {
        throw Error(ErrorKind::Damaged, images->file.name + ": there is no frame " + std::to_string(frame + 1))
            .InFile(images->file.name);
    }
    return {*m_pFile, frame, m_Options, m_Notes};
}

ImagePainter ImageJob::PainterOfFrame(const NamedFile& file, int frame) {
    if (m_pFrames == nullptr || m_FramesOf != file.place) {
        m_pFrames.reset();
        m_pFrames = std::make_unique<FrameReader>(file.place, FrameOptions{.watcher = m_Watch.GetWatcher()});
        m_FramesOf = file.place;
    }
    m_pFile = std::make_unique<ImageFile>(file, m_pFrames->Read(static_cast<std::size_t>(frame)));
    return {*m_pFile, 0, m_Options, m_Notes};
}

SliceReport ImageJob::WriteOne(std::size_t index, const std::string& path) {
    ImagePainter painter = PainterOf(index);
    const PixelForm& form = m_pFile->GetForm();
    if (!m_Options.raw16 && !m_Options.values) {
        SlicePicture drawn = painter.Paint();
        PictureFile(m_Files, path, drawn.report.pixelSize, m_Watch).Write(drawn.picture);
        return std::move(drawn.report);
    }
    // Values stay pixel for pixel. A size that two numbers would have to tell is told by none.
    SliceReport report;
    report.width = form.columns;
    report.height = form.rows;
    const auto spacing = painter.GetSpacing();
    if (spacing && (*spacing)[0] == (*spacing)[1]) report.pixelSize = (*spacing)[0];
    PictureFile file(m_Files, path, report.pixelSize, m_Watch);
    if (m_Options.values) {
        file.Write(painter.TakeValues(), form.columns, form.rows);
        report.values = "real values, 32-bit floating point";
    } else {
        file.Write(painter.TakeStored(), form.columns, form.rows);
        report.values = form.isSigned ? "stored values + 32768" : "stored values";
    }
    return report;
}

SliceReport ImageJob::WriteFolder() {
    MakeDirectory(m_Output);
    SliceReport report;
    const std::size_t count = CountImages();
    const char* const ending = m_Options.values ? ".tif" : ".png";
    TaskProgress progress(m_Watch, "drawing", static_cast<std::int64_t>(count));
    for (std::size_t index = 0; index < count; ++index) {
        report = WriteOne(index, m_Output + "/image-" + NumberForName(static_cast<int>(index)) + ending);
        progress.Step();
    }
    report.what = "all " + std::to_string(count) + " images";
    return report;
}

SlicePicture ImageJob::DrawSheet() {
    const std::size_t count = CountImages();
    std::optional<ContactSheet> sheet;
    SliceReport report;
    TaskProgress progress(m_Watch, "drawing", static_cast<std::int64_t>(count));
    for (std::size_t index = 0; index < count; ++index) {
        SlicePicture drawn = PainterOf(index).Paint();
        if (!sheet) {
            sheet.emplace(static_cast<int>(count), drawn.picture.GetWidth(), drawn.picture.GetHeight(),
                          drawn.picture.IsColour() ? Picture::Kind::Colour : Picture::Kind::Grey);
        }
        const Picture tile = drawn.picture.Shrink(sheet->GetFactor());
        report = std::move(drawn.report);
        report.width = tile.GetWidth();
        report.height = tile.GetHeight();
        report.pixelSize *= sheet->GetFactor();
        sheet->Add(tile);
        progress.Step();
    }
    report.what = "all " + std::to_string(count) + " images in rows of " + std::to_string(sheet->GetColumns());
    return {sheet->GetPicture(), std::move(report)};
}

void ImageJob::Finish(SliceReport& report) {
    m_Watch.StopIfAsked();
    m_Notes.Tell(m_Watch);
    m_Files.Commit();
    report.files = m_Files.GetOutputs();
}

SliceReport ImageJob::Run() {
    SliceReport report;
    switch (m_Options.pictures) {
    case SliceOptions::Pictures::Sheet: {
        SlicePicture sheet = DrawSheet();
        PictureFile(m_Files, m_Output, sheet.report.pixelSize, m_Watch).Write(sheet.picture);
        report = std::move(sheet.report);
        break;
    }
    case SliceOptions::Pictures::All: report = WriteFolder(); break;
    case SliceOptions::Pictures::One: {
        const std::size_t index = ChooseIndex();
        report = WriteOne(index, m_Output);
        report.what = "image " + std::to_string(index) + " of " + RangeText(CountImages());
        break;
    }
    }
    Finish(report);
    return report;
}

SlicePicture ImageJob::Draw() {
    if (m_Options.pictures == SliceOptions::Pictures::All || m_Options.raw16 || m_Options.values) {
        throw Error(ErrorKind::WrongArgument, "several pictures, and pictures of values, are written as files");
    }
    if (m_Options.pictures == SliceOptions::Pictures::Sheet) {
        SlicePicture sheet = DrawSheet();
        Finish(sheet.report);
        return sheet;
    }
    const std::size_t index = ChooseIndex();
    SlicePicture drawn = PainterOf(index).Paint();
    drawn.report.what = "image " + std::to_string(index) + " of " + RangeText(CountImages());
    Finish(drawn.report);
    return drawn;
}

SlicePicture Draw(const Series& series, std::size_t image, const SliceOptions& options) {
    SliceOptions one = options;
    one.index = static_cast<int>(std::min<std::size_t>(image, std::numeric_limits<int>::max()));
    one.pictures = SliceOptions::Pictures::One;
    return ImageJob(series, 0, one, "").Draw();
}

SlicePicture Draw(const std::string& path, int frame, const SliceOptions& options) {
    SliceOptions one = options;
    one.index = frame;
    one.pictures = SliceOptions::Pictures::One;
    return ImageJob(path, one).Draw();
}

}  // namespace korvane
