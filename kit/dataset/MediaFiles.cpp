#include "MediaFiles.h"

#include "../core/Paths.h"
#include "DataSetOutput.h"

#include "platform/File.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <system_error>

namespace korvane {

namespace fs = std::filesystem;

namespace {

std::string Folded(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return name;
}

/// The components of a file ID; none where one of them would lead elsewhere, or is no name.
std::vector<std::string> ComponentsOf(const std::string& fileId) {
    std::vector<std::string> names;
    for (std::size_t begin = 0; begin <= fileId.size();) {
        const std::size_t end = std::min(fileId.find('\\', begin), fileId.size());
        std::string name = fileId.substr(begin, end - begin);
        while (name.ends_with(' ')) name.pop_back();
        const bool isName =
            !name.empty() && name.find_first_not_of('.') != std::string::npos &&
            std::none_of(name.begin(), name.end(), [](unsigned char c) { return c < ' ' || c == '/' || c == ':'; });
        if (!isName) return {};
        names.push_back(std::move(name));
        begin = end + 1;
    }
    return names;
}

class Following {
public:
    Following(const NamedFile& directory, const Watch& watch, Inputs& inputs)
        : m_Directory(directory), m_Watch(watch), m_Inputs(inputs) {
        m_Root = platform::FolderOf(directory.place);
        std::replace(m_Root.begin(), m_Root.end(), '\\', '/');
    }

    bool Do() {
        const DataSetFile file = ReadDataSetFile(m_Directory, kParseAll, m_Watch);
        if (file.dataSet == nullptr || !IsMediaDirectory(*file.dataSet)) return false;
        if (!file.complete) Tell("the directory ends early or is damaged");
        const VR* const records = FindElement(*file.dataSet, tags::DirectoryRecordSequence);
        const std::uint32_t count = records != nullptr ? records->GetItemCount() : 0;
        for (std::uint32_t i = 0; i < count; ++i) {
            m_Watch.StopIfAsked();
            Take(*records->GetItem(i));
        }
        return true;
    }

private:
    void Tell(const std::string& what) {
        m_Inputs.unreadable.push_back(
            {.kind = FindingKind::Unreadable, .files = {m_Directory.name}, .text = m_Directory.name + ": " + what});
    }

    void Take(const DICOMObject& record) {
        const std::string fileId = FindText(record, tags::ReferencedFileID);
        if (fileId.empty() || FindInteger(record, tags::RecordInUseFlag, 0xFFFF) == 0) return;
        const std::vector<std::string> names = ComponentsOf(fileId);
        if (names.empty()) {
            Tell("\"" + fileId + "\" is no file ID");
            return;
        }
        std::string path = m_Root;
        for (std::size_t i = 0; i < names.size(); ++i) path += (i == 0 ? "" : "/") + names[i];
        std::error_code error;
        if (!fs::is_regular_file(PathFromText(path), error)) path = FindByAnyCase(names);
        if (path.empty()) {
            Tell("the file that it names \"" + fileId + "\" is not there");
        } else {
            m_Inputs.files.emplace_back(path);
        }
    }

    std::string FindByAnyCase(const std::vector<std::string>& names) {
        std::string path = m_Root;
        for (std::size_t i = 0; i < names.size(); ++i) {
            const auto& known = NamesIn(path);
            const auto found = known.find(Folded(names[i]));
            if (found == known.end()) return {};
            path += (i == 0 ? "" : "/") + found->second;
        }
        std::error_code error;
        return fs::is_regular_file(PathFromText(path), error) ? path : std::string();
    }

    const std::map<std::string, std::string>& NamesIn(const std::string& folder) {
        const auto [entry, isNew] = m_Names.try_emplace(folder);
        if (!isNew) return entry->second;
        std::error_code error;
        fs::directory_iterator one(PathFromText(folder.empty() ? "." : folder), error);
        for (; !error && one != fs::directory_iterator(); one.increment(error)) {
            const std::string name = TextFromPath(one->path().filename());
            entry->second.emplace(Folded(name), name);
        }
        return entry->second;
    }

    const NamedFile& m_Directory;
    Watch m_Watch;
    Inputs& m_Inputs;
    std::string m_Root;  // "", or with a separator at its end
    std::map<std::string, std::map<std::string, std::string>> m_Names;
};

}  // namespace

bool FollowMediaDirectory(const NamedFile& directory, const Watch& watch, Inputs& inputs) {
    return Following(directory, watch, inputs).Do();
}

}  // namespace korvane
