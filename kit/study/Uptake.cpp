#include "Uptake.h"

#include "../core/Error.h"
#include "SeriesFindings.h"

#include <cmath>
#include <cstdint>
#include <optional>
#include <string_view>

namespace korvane {

namespace {

constexpr double kGrams = 1000;
constexpr double kSecondsOfDay = 86400;
constexpr double kSame = 1e-6;  // of the factor: decimal texts

std::optional<int> DigitsOf(std::string_view text, std::size_t at, std::size_t count) {
    if (at + count > text.size()) return std::nullopt;
    int value = 0;
    for (const char digit : text.substr(at, count)) {
        if (digit < '0' || digit > '9') return std::nullopt;
        value = value * 10 + (digit - '0');
    }
    return value;
}

/// Days from a fixed one on, in the Gregorian calendar.
std::optional<double> DayOf(std::string_view date) {
    const auto year = DigitsOf(date, 0, 4);
    const auto month = DigitsOf(date, 4, 2);
    const auto day = DigitsOf(date, 6, 2);
    if (!year || !month || !day || *month < 1 || *month > 12) return std::nullopt;
    // Years begin with March, so that the day that some of them have more is the last.
    const int y = *month > 2 ? *year : *year - 1;
    const int m = (*month + 9) % 12;
    const int days = 365 * y + y / 4 - y / 100 + y / 400 + (153 * m + 2) / 5 + *day;
    return days;
}

/// Seconds after midnight of HHMMSS.FFFFFF; minutes and what follows may be left out.
std::optional<double> SecondOf(std::string_view time) {
    const auto hour = DigitsOf(time, 0, 2);
    if (!hour) return std::nullopt;
    double seconds = *hour * 3600 + DigitsOf(time, 2, 2).value_or(0) * 60 + DigitsOf(time, 4, 2).value_or(0);
    double part = 0.1;
    for (std::size_t at = 7; at < time.size() && time[6] == '.' && time[at] >= '0' && time[at] <= '9'; ++at, part /= 10)
        seconds += part * (time[at] - '0');
    return seconds;
}

class UptakeReader {
public:
    UptakeReader(const std::string& path, const DICOMDataObject& dataSet) : m_Path(path), m_DataSet(dataSet) {
        const DICOMObject* const drug = FindItem(dataSet, tags::RadiopharmaceuticalInformationSequence);
        if (drug == nullptr) Refuse("Radiopharmaceutical Information Sequence (0054,0016) is missing");
        m_pDrug = drug;
    }

    double Factor() const {
        Demand(m_DataSet, tags::Units, "Units (0054,1001)", "BQML");
        const std::string corrected = TextOf(m_DataSet, tags::CorrectedImage, "Corrected Image (0028,0051)");
        for (const char* const done : {"ATTN", "DECY"}) {
            if (("\\" + corrected + "\\").find("\\" + std::string(done) + "\\") == std::string::npos) {
                Refuse("Corrected Image (0028,0051) has no " + std::string(done));
            }
        }
        const double weight = Positive(m_DataSet, tags::PatientWeight, "Patient's Weight (0010,1030)");
        const double dose = Positive(*m_pDrug, tags::RadionuclideTotalDose, "Radionuclide Total Dose (0018,1074)");
        return weight * kGrams / (dose * PartLeft());
    }

private:
    [[noreturn]] void Refuse(const std::string& why) const {
        throw Error(ErrorKind::Unsupported, m_Path + ": no uptake values: " + why).InFile(m_Path);
    }

    std::string TextOf(const DICOMObject& holder, Tag tag, const std::string& name) const {
        std::string text = FindText(holder, tag);
        if (text.empty()) Refuse(name + " is missing");
        return text;
    }

    void Demand(const DICOMObject& holder, Tag tag, const std::string& name, const std::string& wanted) const {
        const std::string text = TextOf(holder, tag, name);
        if (text != wanted) Refuse(name + " is " + text + ", not " + wanted);
    }

    double Positive(const DICOMObject& holder, Tag tag, const std::string& name) const {
        double value = 0;
        TextOf(holder, tag, name);
        if (!FindReals(holder, tag, &value, 1) || !(value > 0)) Refuse(name + " is not above 0");
        return value;
    }

    /// Which part of the dose has not decayed at the time that the values are corrected to.
    double PartLeft() const {
        const std::string name = "Decay Correction (0054,1102)";
        const std::string reference = TextOf(m_DataSet, tags::DecayCorrection, name);
        if (reference == "ADMIN") return 1;
        if (reference != "START") Refuse(name + " is " + reference + ", neither START nor ADMIN");
        const double halfLife = Positive(*m_pDrug, tags::RadionuclideHalfLife, "Radionuclide Half Life (0018,1075)");
        const double start =
            Moment(tags::SeriesDate, tags::SeriesTime, "Series Date (0008,0021)", "Series Time (0008,0031)");
        const double taken = Moment(tags::AcquisitionDate, tags::AcquisitionTime, "Acquisition Date (0008,0022)",
                                    "Acquisition Time (0008,0032)");
        if (start > taken) {
            Refuse(
                "Series Time (0008,0031) is after Acquisition Time (0008,0032), so that the start of the scan is not "
                "known");
        }
        const double elapsed = start - Injection();
        if (elapsed < 0) Refuse("the injection, Radiopharmaceutical Start Time (0018,1072), is after the scan");
        if (elapsed > kSecondsOfDay) Refuse("the injection is more than a day before the scan");
        return std::exp2(-elapsed / halfLife);
    }

    double Moment(Tag date, Tag time, const std::string& dateName, const std::string& timeName) const {
        const auto day = DayOf(TextOf(m_DataSet, date, dateName));
        const auto second = SecondOf(TextOf(m_DataSet, time, timeName));
        if (!day || !second) Refuse((day ? timeName : dateName) + " cannot be read");
        return *day * kSecondsOfDay + *second;
    }

    /// A time without a date is of the day of the scan.
    double Injection() const {
        const std::string whole = FindText(*m_pDrug, tags::RadiopharmaceuticalStartDateTime);
        const bool hasZone = whole.find_first_of("+-") != std::string::npos;
        if (whole.size() >= 12 && !hasZone) {
            const auto day = DayOf(whole);
            const auto second = SecondOf(std::string_view(whole).substr(8));
            if (!day || !second) Refuse("Radiopharmaceutical Start DateTime (0018,1078) cannot be read");
            return *day * kSecondsOfDay + *second;
        }
        const std::string name = "Radiopharmaceutical Start Time (0018,1072)";
        const auto second = SecondOf(TextOf(*m_pDrug, tags::RadiopharmaceuticalStartTime, name));
        const auto day = DayOf(TextOf(m_DataSet, tags::SeriesDate, "Series Date (0008,0021)"));
        if (!second || !day) Refuse(name + " cannot be read");
        return *day * kSecondsOfDay + *second;
    }

    const std::string& m_Path;
    const DICOMDataObject& m_DataSet;
    const DICOMObject* m_pDrug = nullptr;
};

}  // namespace

double UptakeFactorOf(const std::vector<std::pair<std::string, const DICOMDataObject*>>& files) {
    std::optional<double> factor;
    for (const auto& [path, dataSet] : files) {
        const double own = UptakeReader(path, *dataSet).Factor();
        if (factor && std::fabs(own / *factor - 1) > kSame) {
            throw Error(ErrorKind::Unsupported,
                        path +
                            ": no uptake values: weight, dose, times or half-life are others than "
                            "those of " +
                            files.front().first)
                .InFile(path);
        }
        factor = own;
    }
    if (!factor || !std::isfinite(*factor)) throw Error(ErrorKind::Unsupported, "no uptake values: there is no image");
    return *factor;
}

}  // namespace korvane
