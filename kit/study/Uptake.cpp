#include "Uptake.h"

#include "../core/Error.h"
#include "../dataset/DateText.h"
#include "SeriesFindings.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <string_view>

namespace korvane {

namespace {

constexpr double kGrams = 1000;
constexpr double kSame = 1e-6;  // of the factor: decimal texts
constexpr const char* kInjected = "the injection, Radiopharmaceutical Start DateTime (0018,1078),";
constexpr const char* kInjectionTime = "the injection, Radiopharmaceutical Start Time (0018,1072)";

/// On the clock of the place where the scanner stands.
using Moment = std::chrono::local_time<std::chrono::microseconds>;
using SinceMidnight = std::chrono::microseconds;

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
        const Moment start =
            MomentOf(tags::SeriesDate, tags::SeriesTime, "Series Date (0008,0021)", "Series Time (0008,0031)");
        const Moment taken = MomentOf(tags::AcquisitionDate, tags::AcquisitionTime, "Acquisition Date (0008,0022)",
                                      "Acquisition Time (0008,0032)");
        if (start > taken) {
            Refuse(
                "Series Time (0008,0031) is after Acquisition Time (0008,0032), so that the start of the scan is not "
                "known");
        }
        const std::chrono::microseconds elapsed = start - Injection();
        if (elapsed.count() < 0)
            Refuse(
                "the injection, Radiopharmaceutical Start Time (0018,1072) or DateTime (0018,1078), is after the scan");
        if (elapsed > std::chrono::days(1)) Refuse("the injection is more than a day before the scan");
        return std::exp2(-std::chrono::duration<double>(elapsed).count() / halfLife);
    }

    Moment MomentOf(Tag date, Tag time, const std::string& dateName, const std::string& timeName) const {
        const auto day = ReadDate(TextOf(m_DataSet, date, dateName));
        const auto clock = ReadClock(TextOf(m_DataSet, time, timeName));
        if (!day || !clock) Refuse((day ? timeName : dateName) + " cannot be read");
        return std::chrono::local_days(*day) + *clock;
    }

    /// A time without a date is of the day of the scan.
    Moment Injection() const {
        const std::string whole = FindText(*m_pDrug, tags::RadiopharmaceuticalStartDateTime);
        const std::optional<SinceMidnight> clock = InjectionTime();
        if (whole.empty()) {
            const auto day = ReadDate(TextOf(m_DataSet, tags::SeriesDate, "Series Date (0008,0021)"));
            if (!clock || !day) Refuse(std::string(kInjectionTime) + (clock ? ", has no readable day" : " is missing"));
            return std::chrono::local_days(*day) + *clock;
        }
        const std::size_t zone = std::min(whole.find_first_of("+-"), whole.size());
        const std::string_view local = std::string_view(whole).substr(0, zone);
        const auto day = ReadDate(local.substr(0, 8));
        const auto named = day ? ReadClock(local.substr(8)) : std::nullopt;
        if (!named) Refuse(std::string(kInjected) + " cannot be read");
        const Moment moment = std::chrono::local_days(*day) + *named;
        return zone == whole.size() ? moment : moment + ToClockOfScan(whole.substr(zone), *named, clock);
    }

    std::optional<SinceMidnight> InjectionTime() const {
        const std::string time = FindText(*m_pDrug, tags::RadiopharmaceuticalStartTime);
        if (time.empty()) return std::nullopt;
        const auto clock = ReadClock(time);
        if (!clock) Refuse(std::string(kInjectionTime) + " cannot be read");
        return clock;
    }

    /// How far the clock of the scan is ahead of one whose zone the injection names. Where Timezone Offset From UTC
    /// (0008,0201) does not tell, the injection's time of day on the clock of the scan may be the same.
    std::chrono::minutes ToClockOfScan(const std::string& zone, SinceMidnight named,
                                       const std::optional<SinceMidnight>& clock) const {
        const auto own = ReadZone(zone);
        if (!own) Refuse(std::string(kInjected) + " has a time zone that cannot be read");
        const std::string text = FindText(m_DataSet, tags::TimezoneOffsetFromUTC);
        if (text.empty()) {
            if (clock && std::chrono::abs(*clock - named) < std::chrono::seconds(1)) return {};
            Refuse(std::string(kInjected) + " has a time zone, and Timezone Offset From UTC (0008,0201) is missing");
        }
        const auto scan = ReadZone(text);
        if (!scan) Refuse("Timezone Offset From UTC (0008,0201) cannot be read");
        return *scan - *own;
    }

    const std::string& m_Path;
    const DICOMDataObject& m_DataSet;
    const DICOMObject* m_pDrug = nullptr;
};

}  // namespace

void UptakeFactor::Add(const std::string& path, const DICOMDataObject& dataSet) {
    const double own = UptakeReader(path, dataSet).Factor();
    if (m_Factor && std::fabs(own / *m_Factor - 1) > kSame) {
        throw Error(ErrorKind::Unsupported,
                    path + ": no uptake values: weight, dose, times or half-life are others than those of " + m_First)
            .InFile(path);
    }
    if (!m_Factor) m_First = path;
    m_Factor = own;
}

double UptakeFactor::Get() const {
    if (!m_Factor || !std::isfinite(*m_Factor))
        throw Error(ErrorKind::Unsupported, "no uptake values: there is no image");
    return *m_Factor;
}

}  // namespace korvane
