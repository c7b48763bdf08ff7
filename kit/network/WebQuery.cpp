#include "WebQuery.h"

#include "../core/Error.h"
#include "QueryJob.h"
#include "WebAddress.h"
#include "WebService.h"

#include "Dicom/Lib/network/StorageProvider.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <set>
#include <utility>

namespace korvane {

namespace {

constexpr const char* kCollections[] = {"", "studies", "series", "instances"};
constexpr std::size_t kPage = 1000;
constexpr std::size_t kMostPages = 10000;
constexpr std::size_t kMostPageBytes = std::size_t{128} << 20;
constexpr std::size_t kMatchBytes = 1024;  // that an answer takes in memory, however short its text is

// Upper and lower case count as the same: services may take them so.
bool MatchesPattern(std::string_view text, std::string_view pattern) {
    const auto fold = [](char c) { return std::toupper(static_cast<unsigned char>(c)); };
    std::size_t at = 0;
    std::size_t star = std::string_view::npos;  // in the pattern, and where in the text it was tried last
    std::size_t tried = 0;
    std::size_t place = 0;
    while (place < text.size()) {
        if (at < pattern.size() && pattern[at] == '*') {
            star = at++;
            tried = place;
        } else if (at < pattern.size() && (pattern[at] == '?' || fold(pattern[at]) == fold(text[place]))) {
            ++at;
            ++place;
        } else if (star != std::string_view::npos) {
            at = star + 1;
            place = ++tried;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

bool MatchesDates(const std::string& date, const std::string& range) {
    if (date.size() != 8) return true;  // an old form: not judged
    const std::size_t dash = range.find('-');
    if (dash == std::string::npos) return date == range;
    const std::string last = range.substr(dash + 1);
    return date >= range.substr(0, dash) && (last.empty() || date <= last);
}

// The answers of one request that come in pages.
struct Pages {
    std::set<std::string> seen;  // unique keys
    std::vector<DataSet> matches;
    std::size_t taken = 0;  // answers, repeated ones too
    bool isFresh = false;   // whether a page had some that were new
};

class WebQueryJob : public QueryJob {
public:
    WebQueryJob(const Peer& peer, const QueryOptions& options) : QueryJob(peer, options), m_Service(peer, m_Watch) {}

protected:
    void Begin() override {}
    void End() override {}

    // A service may answer with fewer than it is asked for, and should say so, but need not; so pages are asked for until
    // one brings nothing new. One that passes over `offset` brings the same again.
    std::vector<DataSet> Ask(int level, const Unique& above) override {
        const std::string address = MakeAddress(level, above);
        Pages pages;
        for (std::size_t page = 0; page < kMostPages; ++page) {
            const std::size_t asked = PageSize(level, pages.matches.size());
            std::string text;
            const WebOutcome outcome =
                m_Service.GetText(address + "limit=" + std::to_string(asked) + "&offset=" + std::to_string(pages.taken),
                                  "application/dicom+json", kMostPageBytes, text);
            std::vector<DataSet> answers;
            if (outcome.answer.status != 204) answers = Read(text);
            const std::size_t count = answers.size();
            pages.isFresh = false;
            if (!Take(level, answers, pages)) {
                m_Report.isCut = true;
                return std::move(pages.matches);
            }
            m_Bytes += text.size() + count * kMatchBytes;
            if (m_Bytes > kMostQueryBytes) break;
            if (pages.isFresh) continue;
            const bool saysMore = outcome.answer.Header("warning").find("299") != std::string::npos;
            if (saysMore || count == asked) break;
            return std::move(pages.matches);
        }
        m_Report.isCut = true;
        return std::move(pages.matches);
    }

private:
    std::size_t PageSize(int level, std::size_t have) const {
        if (level != GetTarget() || m_Options.limit == 0) return kPage;
        const std::size_t wanted = m_Options.limit - std::min(m_Options.limit, m_Report.matches.size() + have);
        return std::min(wanted + 1, kPage);
    }

    std::vector<DataSet> Read(const std::string& text) const {
        try {
            return DataSet::ListFromJson(text);
        } catch (const Error& error) {
            m_Service.Refuse(std::string("an answer that is no list of data sets: ") + error.what());
        }
    }

    // Takes the answers of a page; false once there are more than are wanted.
    bool Take(int level, std::vector<DataSet>& answers, Pages& pages) {
        const char* const unique = kUniqueKeys[static_cast<std::size_t>(level)];
        pages.taken += answers.size();
        for (DataSet& answer : answers) {
            const std::string uid = answer.Text(unique);
            if (uid.empty()) m_Service.Refuse(std::string("an answer without its ") + unique);
            if (!pages.seen.insert(uid).second) continue;
            if (IsEnough(level, pages.matches.size())) return false;
            const bool isOdd = std::any_of(m_Options.keys.begin(), m_Options.keys.end(), [&](const QueryKey& key) {
                return LevelOf(key.path) == level && Contradicts(answer, key);
            });
            m_Report.ignoredKeys = m_Report.ignoredKeys || isOdd;
            // Above the target it would lead to a search through the whole archive.
            if (!isOdd || level == GetTarget()) pages.matches.push_back(std::move(answer));
            pages.isFresh = true;
        }
        return true;
    }

    // Whether an answer plainly is not what a key asks for: the service has passed over the key, as it may do without a
    // word. Names and times are left out, for which there are too many ways to be the same.
    static bool Contradicts(const DataSet& answer, const QueryKey& key) {
        const std::vector<std::string> values = answer.Texts(key.path);
        if (key.value.empty() || values.empty()) return false;
        const std::string type = answer.TypeOf(key.path);
        constexpr const char* kJudged[] = {"UI", "DA", "CS", "LO", "SH"};
        if (std::find(std::begin(kJudged), std::end(kJudged), type) == std::end(kJudged)) return false;
        if ((type == "UI" || type == "DA") && !IsSingleValue(key.value)) return false;
        if (key.value.find('\\') != std::string::npos) return false;  // a list
        // Beyond ASCII services differ in cases, and in what one `?` stands for.
        const auto isOther = [](char c) { return static_cast<signed char>(c) < 0; };
        return std::none_of(values.begin(), values.end(), [&](const std::string& value) {
            if (std::any_of(value.begin(), value.end(), isOther)) return true;
            return type == "DA" ? MatchesDates(value, key.value) : MatchesPattern(value, key.value);
        });
    }

    // Up to the `?` or `&` behind which the page is named.
    std::string MakeAddress(int level, const Unique& above) const {
        std::string address;
        const std::size_t last = std::clamp<std::size_t>(static_cast<std::size_t>(level), 1, 3);
        for (std::size_t i = 1; i < last; ++i) address += PathStep(kCollections[i], above[i]);
        address += std::string("/") + kCollections[last];
        char mark = '?';
        const auto add = [&](const std::string& name, const std::string& value) {
            address += mark + name + '=' + value;
            mark = '&';
        };
        for (const QueryKey& key : m_Options.keys) {
            if (LevelOf(key.path) != level) continue;
            if (key.value.empty()) {
                add("includefield", NameOf(key.path));
            } else {
                add(NameOf(key.path), PercentEncoded(ValueOf(key)));
            }
        }
        for (const std::string& keyword : UsualKeys(level)) add("includefield", NameOf(keyword));
        return address + mark;
    }

    // Tags with dots between them (PS3.18 8.3.4).
    static std::string NameOf(const ElementPath& path) {
        std::string name;
        for (const ElementPath::Step& step : path.GetSteps()) {
            char digits[16];
            std::snprintf(digits, sizeof digits, "%08X", static_cast<unsigned>(step.tag));
            name += (name.empty() ? "" : ".") + std::string(digits);
        }
        return name;
    }

    // Lists of UIDs have commas here.
    static std::string ValueOf(const QueryKey& key) {
        std::string value = key.value;
        const bool isUids = value.find_first_not_of("0123456789.\\") == std::string::npos;
        if (isUids) std::replace(value.begin(), value.end(), '\\', ',');
        return value;
    }

    WebService m_Service;
};

}  // namespace

std::string PathStep(const char* collection, const std::string& uid) {
    if (!IsUid(uid))
        throw Error(ErrorKind::Refused, uid + ": not a UID, and so no " + collection + " of a web service");
    return std::string("/") + collection + "/" + uid;
}

QueryReport WebQuery(const Peer& peer, const QueryOptions& options) {
    if (options.level == QueryLevel::Patient || options.patientRoot) {
        throw Error(ErrorKind::WrongArgument, "DICOMweb has no level of patients: ask for studies with PatientID=...");
    }
    if (options.level == QueryLevel::Worklist) {
        throw Error(ErrorKind::WrongArgument, "worklists are asked for by C-FIND, with a host and a port");
    }
    return WebQueryJob(peer, options).Run();
}

}  // namespace korvane
