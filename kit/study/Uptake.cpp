#include "Uptake.h"

#include "../core/Error.h"
#include "SeriesFindings.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <string_view>

namespace korvane {

namespace {

constexpr double kGrams = 1000;
constexpr double kSecondsOfDay = 86400;
constexpr double kSame = 1e-6;  // of the factor: decimal texts
constexpr const char* kInjected = "the injection, Radiopharmaceutical Start DateTime (0018,1078),";
constexpr const char* kInjectionTime = "the injection, Radiopharmaceutical Start Time (0018,1072)";

std::optional<int> DigitsOf(std::string_view text, std::size_t at, std::size_t count) {
    if (at + count > text.size()) return std::nullopt;
    int value = 0;
    for (const char digit : text.substr(at, count)) {
        if (digit < '0' || digit > '9') return std::nullopt;
        value = value * 10 + (digit - '0');
    }
    return value;
}

/// Days from a fixed one on, of YYYYMMDD.
std::optional<double> DayOf(std::string_view date) {
    const auto year = DigitsOf(date, 0, 4);
    const auto month = DigitsOf(date, 4, 2);
    const auto day = DigitsOf(date, 6, 2);
    if (!year || !month || !day) return std::nullopt;
    const std::chrono::year_month_day named{std::chrono::year(*year), std::chrono::month(static_cast<unsigned>(*month)),
                                            std::chrono::day(static_cast<unsigned>(*day))};
    if (!named.ok()) return std::nullopt;
    return static_cast<double>(std::chrono::sys_days(named).time_since_epoch().count());
}

/// Seconds after midnight of HHMMSS.FFFFFF, all of it: minutes and what follows may be left out, and colons between the
/// parts are those of files before the standard.
std::optional<double> SecondOf(std::string_view time) {
    std::string plain(time);
    if (plain.size() >= 8 && plain[2] == ':' && plain[5] == ':')
        plain = plain.substr(0, 2) + plain.substr(3, 2) + plain.substr(6);
    const std::size_t whole = std::min(plain.find('.'), plain.size());
    const auto hour = DigitsOf(plain, 0, 2);
    const auto minute = whole > 2 ? DigitsOf(plain, 2, 2) : 0;
    const auto second = whole > 4 ? DigitsOf(plain, 4, 2) : 0;
    if (whole > 6 || whole % 2 != 0 || (whole < plain.size() && whole != 6)) return std::nullopt;
    if (!hour || !minute || !second || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
    double seconds = *hour * 3600 + *minute * 60 + *second;
    double part = 0.1;
    for (std::size_t at = whole + 1; at < plain.size(); ++at, part /= 10) {
        const auto digit = DigitsOf(plain, at, 1);
        if (!digit) return std::nullopt;
        seconds += part * *digit;
    }
    return seconds;
}

/// Seconds that clocks are ahead of UTC, of "+0130".
std::optional<double> ZoneOf(std::string_view zone) {
    const auto hours = DigitsOf(zone, 1, 2);
    const auto minutes = DigitsOf(zone, 3, 2);
    if (zone.size() != 5 || (zone[0] != '+' && zone[0] != '-') || !hours || !minutes || *minutes > 59)
        return std::nullopt;
    const double ahead = *hours * 3600 + *minutes * 60;
    if (ahead > 14 * 3600) return std::nullopt;
    return zone[0] == '+' ? ahead : -ahead;
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
        if (elapsed < 0)
            Refuse(
                "the injection, Radiopharmaceutical Start Time (0018,1072) or DateTime (0018,1078), is after the scan");
        if (elapsed > kSecondsOfDay) Refuse("the injection is more than a day before the scan");
        return std::exp2(-elapsed / halfLife);
    }

    double Moment(Tag date, Tag time, const std::string& dateName, const std::string& timeName) const {
        const auto day = DayOf(TextOf(m_DataSet, date, dateName));
        const auto second = SecondOf(TextOf(m_DataSet, time, timeName));
        if (!day || !second) Refuse((day ? timeName : dateName) + " cannot be read");
        return *day * kSecondsOfDay + *second;
    }

    /// On the clock of the scan. A time without a date is of the day of the scan.
    double Injection() const {
        const std::string whole = FindText(*m_pDrug, tags::RadiopharmaceuticalStartDateTime);
        const std::size_t zone = std::min(whole.find_first_of("+-"), whole.size());
        if (zone < 10 && !whole.empty()) Refuse(std::string(kInjected) + " cannot be read");
        const std::optional<double> clock = InjectionTime();
        if (whole.empty()) {
            const auto day = DayOf(TextOf(m_DataSet, tags::SeriesDate, "Series Date (0008,0021)"));
            if (!clock || !day) Refuse(std::string(kInjectionTime) + (clock ? ", has no readable day" : " is missing"));
            return *day * kSecondsOfDay + *clock;
        }
        const auto day = DayOf(whole);
        const auto second = SecondOf(std::string_view(whole).substr(8, zone - 8));
        if (!day || !second) Refuse(std::string(kInjected) + " cannot be read");
        const double moment = *day * kSecondsOfDay + *second;
        return zone == whole.size() ? moment : moment + ZoneOfScan(whole.substr(zone), *second, clock);
    }

    std::optional<double> InjectionTime() const {
        const std::string time = FindText(*m_pDrug, tags::RadiopharmaceuticalStartTime);
        if (time.empty()) return std::nullopt;
        const auto second = SecondOf(time);
        if (!second) Refuse(std::string(kInjectionTime) + " cannot be read");
        return second;
    }

    /// Seconds that the clock of the scan is ahead of one whose zone the injection names. Where Timezone Offset From UTC
    /// (0008,0201) does not tell, the injection's time of day on the clock of the scan may be the same.
    double ZoneOfScan(const std::string& named, double second, const std::optional<double>& clock) const {
        const auto own = ZoneOf(named);
        if (!own) Refuse(std::string(kInjected) + " has a time zone that cannot be read");
        const std::string text = FindText(m_DataSet, tags::TimezoneOffsetFromUTC);
        if (text.empty()) {
            if (clock && std::fabs(*clock - second) < 1) return 0;
            Refuse(std::string(kInjected) + " has a time zone, and Timezone Offset From UTC (0008,0201) is missing");
        }
        const auto scan = ZoneOf(text);
        if (!scan) Refuse("Timezone Offset From UTC (0008,0201) cannot be read");
        return *scan - *own;
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
