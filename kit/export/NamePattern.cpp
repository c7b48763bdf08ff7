#include "NamePattern.h"

#include "../core/Error.h"
#include "../core/SafeName.h"
#include "../study/FoundFiles.h"

#include <algorithm>
#include <cmath>

namespace korvane {

namespace {

constexpr std::string_view kFields = "sdpemtniu%";
constexpr std::size_t kEchoNumber = 8;  // entry of `FrameKeys`

std::string ValueOf(char field, const Series& series) {
    const FoundFiles& found = series.GetFiles();
    const double echo = found.KeysOf(series.GetFound().slices.front()).values[kEchoNumber];
    switch (field) {
    case 's': return std::to_string(series.GetNumber());
    case 'd': return series.GetDescription();
    case 'p': return series.GetProtocol();
    case 'e': return std::isnan(echo) ? "" : std::to_string(std::lround(echo));
    case 'm': return series.GetModality();
    case 't': return series.GetStudyDate();
    case 'n': return series.GetPatientName();
    case 'i': return series.GetPatientId();
    case 'u': return series.GetUid();
    default: return "%";
    }
}

/// "a", "b" ... "z", "aa", "ab" ...
std::string Letters(std::size_t number) {
    std::string text;
    for (; number > 0; number = (number - 1) / 26)
        text.insert(text.begin(), static_cast<char>('a' + (number - 1) % 26));
    return text;
}

}  // namespace

NamePattern::NamePattern(std::string pattern) : m_Pattern(std::move(pattern)) {
    std::replace(m_Pattern.begin(), m_Pattern.end(), '\\', '/');
    for (std::size_t at = m_Pattern.find('%'); at != std::string::npos; at = m_Pattern.find('%', at + 2)) {
        if (at + 1 >= m_Pattern.size() || kFields.find(m_Pattern[at + 1]) == std::string_view::npos) {
            throw Error(ErrorKind::WrongArgument, "no such field in the pattern of names: " + m_Pattern.substr(at, 2) +
                                                      "; there are %s number, %d description, %p protocol, %e echo, "
                                                      "%m modality, %t study date, %n patient's name, %i patient's "
                                                      "ID, %u UID, %%");
        }
    }
    const std::string framed = "/" + m_Pattern + "/";
    if (framed.find("/./") != std::string::npos || framed.find("/../") != std::string::npos ||
        framed.find("//") != std::string::npos) {
        throw Error(ErrorKind::WrongArgument,
                    "a pattern of names with an empty part, or one that is a dot or two: " + m_Pattern);
    }
}

std::string NamePattern::MakeName(const Series& series) const {
    std::string name;
    std::string part;
    const auto finish = [&] {
        const std::size_t begin = std::min(part.find_first_not_of('_'), part.size());
        const std::size_t end = part.find_last_not_of('_') + 1;  // what an empty field leaves
        const std::string safe = MakeSafeName(std::string_view(part).substr(begin, end > begin ? end - begin : 0));
        name += safe.empty() ? "series" : safe;
        part.clear();
    };
    for (std::size_t i = 0; i < m_Pattern.size(); ++i) {
        if (m_Pattern[i] == '%') {
            part += MakeSafeName(ValueOf(m_Pattern[++i], series));
        } else if (m_Pattern[i] == '/') {
            finish();
            name += '/';
        } else {
            part += m_Pattern[i];
        }
    }
    finish();
    return name;
}

std::string NamesTaken::Take(const std::string& name, const std::vector<std::string>& suffixes) {
    for (std::size_t number = 0;; ++number) {
        std::string candidate = name + Letters(number);
        std::vector<std::string> wanted = {FoldName(candidate)};
        for (const std::string& suffix : suffixes) wanted.push_back(FoldName(candidate + suffix));
        if (std::any_of(wanted.begin(), wanted.end(), [this](const auto& one) { return m_Names.contains(one); }))
            continue;
        m_Names.insert(wanted.begin(), wanted.end());
        return candidate;
    }
}

}  // namespace korvane
