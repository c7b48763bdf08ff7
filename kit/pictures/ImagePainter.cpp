#include "ImagePainter.h"

#include "../core/Error.h"
#include "../study/SeriesFindings.h"
#include "Annotation.h"
#include "ColourScale.h"
#include "Histogram.h"
#include "PictureSize.h"

#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace korvane {

namespace {

constexpr double kSignedOffset = 32768;
constexpr int kTableBits = 16;    // up to as many stored bits each value is mapped once
constexpr int kRowsUnasked = 64;  // between two questions whether to stop

bool IsGreyForm(const PixelForm& form) {
    return form.samples == 1 && form.photometric.starts_with("MONOCHROME");
}

/// Whether an overlay plane lies in the pixels, or in data of its own.
bool HasOverlay(const DICOMDataObject& dataSet) {
    for (std::uint16_t group = 0x6000; group < 0x6020; group = static_cast<std::uint16_t>(group + 2)) {
        if (FindElement(dataSet, MakeTag(group, 0x3000)) != nullptr ||
            FindElement(dataSet, MakeTag(group, 0x0010)) != nullptr) {
            return true;
        }
    }
    return false;
}

/// The lowest and the highest value of an image, and those where 1 in 100 is below and above.
class ValueSpread {
public:
    ValueSpread(const PixelForm& form, const ModalityTransform& modality, const std::optional<Padding>& padding)
        : m_Modality(modality), m_Padding(padding), m_Step(form.kind != PixelForm::Kind::Integer ? 0
                                                           : modality.table                      ? 1
                                                                            : std::fabs(modality.rescale.slope)) {}

    bool IsMeasured(double stored) const {
        return !std::isnan(stored) && !(m_Padding && stored >= m_Padding->first && stored <= m_Padding->second);
    }

    void Extend(const std::vector<double>& row) {
        for (const double stored : row) {
            if (!IsMeasured(stored)) continue;
            const double value = m_Modality(stored);
            m_Low = std::min(m_Low, value);
            m_High = std::max(m_High, value);
        }
    }

    void Count(const std::vector<double>& row) {
        if (!m_Histogram) {
            const double range = m_High - m_Low;
            m_Bin = m_Step > 0 && range < m_Step * kBins ? m_Step : range / kBins;
            m_Histogram.emplace(0, kBins);
        }
        std::vector<std::int32_t> bins;
        for (const double stored : row) {
            if (IsMeasured(stored))
                bins.push_back(static_cast<std::int32_t>(std::lround((m_Modality(stored) - m_Low) / m_Bin)));
        }
        m_Histogram->Add(bins.data(), bins.size());
    }

    bool IsEmpty() const { return !(m_Low <= m_High) || !std::isfinite(m_High - m_Low); }
    bool IsFlat() const { return m_Low == m_High; }

    ValuesOfInterest Choose() const {
        ValuesOfInterest interest;
        interest.low = IsFlat() ? m_Low : m_Low + m_Bin * m_Histogram->Percentile(0.01);
        interest.high = IsFlat() ? m_High : m_Low + m_Bin * m_Histogram->Percentile(0.99);
        std::string from = "from the 1st to the 99th percentile";
        if (interest.low == interest.high && !IsFlat()) {
            interest.low = m_Low;
            interest.high = m_High;
            from = "from the lowest to the highest value";
        }
        const double more = m_Step > 0 ? 1 : 0;  // a window of whole values counts both ends
        interest.window = {(interest.low + interest.high + more) / 2, interest.high - interest.low + more};
        interest.origin = std::string(more > 0 ? "" : "exact ") + "window " + ShortNumber(interest.window.centre) +
                          ',' + ShortNumber(interest.window.width) + ' ' + from;
        if (interest.low == interest.high) {  // all the same: grey
            const double half = m_Step > 0 ? 0.5 : std::max(std::fabs(interest.low), 1.0) / 2;
            interest.low -= half;
            interest.high += half;
        }
        return interest;
    }

private:
    static constexpr int kBins = 65535;

    const ModalityTransform& m_Modality;
    const std::optional<Padding>& m_Padding;
    double m_Step;  ///< of values; 0 for floating point
    double m_Bin = 1;
    double m_Low = HUGE_VAL;
    double m_High = -HUGE_VAL;
    std::optional<Histogram> m_Histogram;
};

std::string Opposite(const std::string& letters) {
    const std::string from = "LRPAHF";
    const std::string to = "RLAPFH";
    std::string other = letters;
    for (char& letter : other) letter = from.find(letter) != std::string::npos ? to[from.find(letter)] : ' ';
    return other;
}

}  // namespace

void PictureNotes::Add(FindingKind kind, const std::string& sentence, const std::string& path, std::size_t count) {
    Finding& note = m_Notes.try_emplace(sentence, Finding{.kind = kind}).first->second;
    if (note.files.empty() || note.files.back() != path) note.files.push_back(path);
    note.count += count;
}

void PictureNotes::Tell(const Watch& watch) const {
    for (const auto& [sentence, note] : m_Notes) {
        Finding finding = note;
        const std::size_t others = note.files.size() - 1;
        finding.text = note.files.front();
        if (others > 0) finding.text += " and " + std::to_string(others) + (others == 1 ? " other" : " others");
        finding.text += ": " + sentence;
        watch.Tell(finding);
    }
}

void NoteWhatIsLeftOut(const DICOMDataObject& dataSet, const std::string& path, PictureNotes& notes) {
    const auto leave = [&](const char* sentence) { notes.Add(FindingKind::NotApplied, sentence, path); };
    if (HasOverlay(dataSet)) leave("an overlay is not drawn");
    if (FindItem(dataSet, tags::PresentationLUTSequence) != nullptr) leave("its Presentation LUT is not applied");
    if (FindElement(dataSet, tags::ShutterShape) != nullptr) leave("its display shutter is not applied");
    if (FindItem(dataSet, tags::MaskSubtractionSequence) != nullptr) leave("its mask is not subtracted");
    if (FindElement(dataSet, tags::ICCProfile) != nullptr) leave("its colour profile is not applied");
    const bool isGrey = FindText(dataSet, tags::PhotometricInterpretation).starts_with("MONOCHROME");
    if (isGrey && FindElement(dataSet, tags::RedPaletteColorLookupTableDescriptor) != nullptr)
        leave("its supplemental palette is not applied");
    const auto isTable = [&](Tag tag) {
        const DICOMObject* const item = FindItem(dataSet, tag);
        return item == nullptr || ReadLookupTable(*item, false).has_value();
    };
    if (!isTable(tags::ModalityLUTSequence)) leave("its Modality LUT is damaged, and not applied");
    if (!isTable(tags::VOILUTSequence)) leave("its VOI LUT is damaged, and not applied");
}

ImagePainter::ImagePainter(const ImageFile& file, int frame, const SliceOptions& options, PictureNotes& notes)
    : m_File(file), m_Frame(frame), m_Options(options), m_Notes(notes) {}

template <class Take>
void ImagePainter::ForRows(Take take) const {
    std::vector<double> row;
    const Watch watch(m_Options.watcher);
    for (int y = 0; y < m_File.GetForm().rows; ++y) {
        if (y % kRowsUnasked == 0) watch.StopIfAsked();
        m_File.ReadRow(m_Frame, y, row);
        take(y, std::as_const(row));
    }
}

FramePlace ImagePainter::GetPlace() const {
    const FramePlaces& places = m_File.GetHeader().places;
    const auto frame = static_cast<std::size_t>(m_Frame);
    return places.Get(frame < places.GetCount() ? frame : 0);
}

std::optional<std::array<double, 2>> ImagePainter::GetSpacing() const {
    if (GetPlace().hasSpacing) return GetPlace().spacing;
    return std::nullopt;
}

std::array<double, 2> ImagePainter::GetAspect() const {
    if (const auto spacing = GetSpacing()) return *spacing;
    const std::array<double, 2>& detector = m_File.GetHeader().detectorSpacing;
    if (detector[0] > 0 && detector[1] > 0) return detector;
    std::array<double, 2> ratio{};
    const bool stated = FindReals(m_File.GetDataSet(), tags::PixelAspectRatio, ratio.data(), 2);
    return stated && ratio[0] > 0 && ratio[1] > 0 ? ratio : std::array<double, 2>{1, 1};
}

SlicePicture ImagePainter::Paint() {
    const PixelForm& form = m_File.GetForm();
    NoteWhatIsLeftOut(m_File.GetDataSet(), m_File.GetPath(), m_Notes);
    if (const std::size_t above = m_File.CountBitsAbove(m_Frame); above > 0) {
        m_Notes.Add(FindingKind::BitsAboveStored,
                    "bits above the stored ones are set, by an overlay or as dirt; they are left out", m_File.GetPath(),
                    above);
    }
    Picture picture = IsGreyForm(form) ? PaintGrey() : PaintColour();
    const std::array<double, 2> aspect = GetAspect();
    const double side = std::min(aspect[0], aspect[1]);
    const double width = form.columns * aspect[1] / side;
    const double height = form.rows * aspect[0] / side;
    const auto whole = [](double length) { return std::max(1, static_cast<int>(std::min(length + 0.5, 1e9))); };
    const double zoom = FindZoom(whole(width), whole(height), m_Options);
    SlicePicture result{picture.Resize(whole(width * zoom), whole(height * zoom)), {}};
    result.report.width = result.picture.GetWidth();
    result.report.height = result.picture.GetHeight();
    result.report.values = m_Values;
    if (GetSpacing()) result.report.pixelSize = side / zoom;
    Annotate(result.picture, result.report);
    return result;
}

void ImagePainter::Annotate(Picture& picture, SliceReport& report) const {
    const FramePlace& place = GetPlace();
    const std::array<double, 6>& o = place.orientation;
    if (place.hasOrientation) {
        report.right = DirectionLabel(o[0], o[1], o[2]);
        report.below = DirectionLabel(o[3], o[4], o[5]);
    } else {
        const std::string letters = FindText(m_File.GetDataSet(), tags::PatientOrientation);
        const std::size_t middle = letters.find('\\');
        if (middle != std::string::npos) {
            report.right = letters.substr(0, middle);
            report.below = letters.substr(middle + 1);
        }
    }
    if (!m_Options.annotate) return;
    Annotation annotation;
    annotation.left = Opposite(report.right);
    annotation.right = report.right;
    annotation.top = Opposite(report.below);
    annotation.bottom = report.below;
    annotation.pixelSize = report.pixelSize;
    korvane::Annotate(picture, annotation);
}

Picture ImagePainter::PaintColour() {
    const PixelForm& form = m_File.GetForm();
    const ColourScale scale(m_File);
    if (scale.GetPalette() && !scale.GetPalette()->GetRemark().empty()) {
        m_Notes.Add(FindingKind::OddPalette, scale.GetPalette()->GetRemark(), m_File.GetPath());
    }
    m_Values = "colours as they are stored";
    if (m_Options.window || !m_Options.windowName.empty())
        throw Error(ErrorKind::WrongArgument, "a window is for grey values, not for " + form.photometric);
    Picture picture(form.columns, form.rows, 0, Picture::Kind::Colour);
    const std::size_t rowBytes = static_cast<std::size_t>(form.columns) * 3;
    ForRows([&](int y, const std::vector<double>& row) {
        scale.Map(row, picture.GetPixels() + static_cast<std::size_t>(y) * rowBytes);
    });
    return picture;
}

GreyScale ImagePainter::FindScale() {
    const PixelForm& form = m_File.GetForm();
    const DICOMDataObject& dataSet = m_File.GetDataSet();
    GreyScale scale;
    scale.modality = ReadModality(dataSet, m_Frame, form);
    scale.inverse = IsInverse(dataSet, form);
    if (m_Options.window) {
        scale.interest = WindowOf(*m_Options.window);
    } else if (!m_Options.windowName.empty()) {
        scale.interest = FindNamedValues(dataSet, m_Frame, form.isSigned, "image", m_Options.windowName);
    } else if (auto own = ReadValuesOfInterest(dataSet, m_Frame, form.isSigned, "image")) {
        scale.interest = std::move(*own);
    } else if (form.stored == 1) {
        scale.interest.origin = "from 0 to 1";
    } else {
        const std::optional<Padding> padding = ReadPadding(dataSet, form);
        ValueSpread spread(form, scale.modality, padding);
        ForRows([&](int, const std::vector<double>& row) { spread.Extend(row); });
        if (spread.IsEmpty()) {
            scale.interest.origin = "without measured values";
        } else {
            if (!spread.IsFlat()) ForRows([&](int, const std::vector<double>& row) { spread.Count(row); });
            scale.interest = spread.Choose();
        }
    }
    m_Values = scale.interest.origin;
    if (scale.inverse != (scale.modality.rescale.slope < 0)) m_Values += ", low values bright";
    return scale;
}

Picture ImagePainter::PaintGrey() {
    const PixelForm& form = m_File.GetForm();
    const GreyScale scale = FindScale();
    Picture picture(form.columns, form.rows);
    std::uint8_t* out = picture.GetPixels();
    const bool isWide = form.kind != PixelForm::Kind::Integer || form.stored > kTableBits;
    if (isWide || picture.GetSize() * 4 < std::size_t{1} << static_cast<unsigned>(form.stored)) {
        ForRows([&](int, const std::vector<double>& row) {
            for (const double value : row) *out++ = scale(value);
        });
        return picture;
    }
    const std::vector<std::uint8_t> greys = MakeTable(scale);
    const Watch watch(m_Options.watcher);
    for (int y = 0; y < form.rows; ++y, out += form.columns) {
        if (y % kRowsUnasked == 0) watch.StopIfAsked();
        m_File.MapRow(m_Frame, y, greys, out);
    }
    return picture;
}

/// The grey of each pattern of the stored bits: with a sign, negative ones follow the others.
std::vector<std::uint8_t> ImagePainter::MakeTable(const GreyScale& scale) const {
    const PixelForm& form = m_File.GetForm();
    std::vector<std::uint8_t> greys(std::size_t{1} << static_cast<unsigned>(form.stored));
    const std::size_t negative = form.isSigned ? greys.size() / 2 : greys.size();
    const auto all = static_cast<double>(greys.size());
    for (std::size_t i = 0; i < greys.size(); ++i) {
        greys[i] = scale(static_cast<double>(i) - (i < negative ? 0 : all));
    }
    return greys;
}

void ImagePainter::CheckGrey() const {
    if (IsGreyForm(m_File.GetForm())) return;
    const std::string& photometric = m_File.GetForm().photometric;
    throw Error(ErrorKind::Unsupported, m_File.GetPath() + ": " + (photometric.empty() ? "unknown" : photometric) +
                                            " pixels are no grey values")
        .InFile(m_File.GetPath());
}

std::vector<std::uint16_t> ImagePainter::TakeStored() const {
    const PixelForm& form = m_File.GetForm();
    CheckGrey();
    if (form.kind != PixelForm::Kind::Integer || form.stored > 16) {
        throw Error(ErrorKind::Unsupported,
                    m_File.GetPath() + ": " +
                        (form.kind != PixelForm::Kind::Integer ? "floating-point pixels"
                                                               : std::to_string(form.allocated) + "-bit pixels") +
                        " do not fit into 16 bits")
            .InFile(m_File.GetPath());
    }
    std::vector<std::uint16_t> stored;
    ForRows([&](int, const std::vector<double>& row) {
        for (const double value : row) {
            stored.push_back(static_cast<std::uint16_t>(form.isSigned ? value + kSignedOffset : value));
        }
    });
    return stored;
}

std::vector<float> ImagePainter::TakeValues() const {
    CheckGrey();
    const ModalityTransform modality = ReadModality(m_File.GetDataSet(), m_Frame, m_File.GetForm());
    std::vector<float> values;
    ForRows([&](int, const std::vector<double>& row) {
        for (const double value : row) values.push_back(static_cast<float>(modality(value)));
    });
    return values;
}

}  // namespace korvane
