#include "OpenCommitments.h"

#include "../core/Error.h"
#include "../core/Paths.h"

#include "Dicom/Lib/network/StorageProvider.h"
#include "platform/File.h"
#include "platform/FileTree.h"
#include "platform/ReplacingFile.h"
#include "platform/Sync.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>
#include <utility>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

constexpr char kSchema[] = "korvane.commitment";
constexpr std::string_view kEnd = ".json";
constexpr std::size_t kMostOpen = 1000;
constexpr std::size_t kMostInstances = 1'000'000;
constexpr std::uint64_t kLargestFile = std::uint64_t{16} << 20;

// The text of a member; "" where it is none.
std::string TextIn(const Json& json, const char* name) {
    const auto found = json.find(name);
    return found != json.end() && found->is_string() ? found->get<std::string>() : "";
}

// A file of a request, whatever it holds; null where it is none.
Json ReadFile(const std::string& path) {
    platform::InputFile in;
    if (!in.Open(path.c_str()) || in.GetSize() > kLargestFile) return {};
    std::string text(static_cast<std::size_t>(in.GetSize()), '\0');
    text.resize(in.Read(text.data(), text.size()));
    Json json = Json::parse(text, nullptr, false);
    const bool isRequest = json.is_object() && TextIn(json, "schema") == kSchema &&
                           IsUid(TextIn(json, "transaction")) && json.contains("instances") &&
                           json["instances"].is_array();
    return isRequest ? json : Json();
}

}  // namespace

OpenCommitments::OpenCommitments(const std::string& folder) : m_Folder(folder + "/.korvane-commitments") {}

std::vector<OpenCommitment> OpenCommitments::Load(bool alone) {
    std::vector<std::string> paths;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(PathFromText(m_Folder), error), end; !error && entry != end;
         entry.increment(error)) {
        paths.push_back(TextFromPath(entry->path()));
    }
    std::vector<OpenCommitment> open;
    for (const std::string& path : paths) {
        if (alone && path.ends_with(".part")) RemoveFile(path);
        if (!path.ends_with(kEnd)) continue;
        const Json json = ReadFile(path);
        if (json.is_null()) continue;
        const auto since = json.find("since");
        OpenCommitment found{TextIn(json, "transaction"), TextIn(json, "calling"), TextIn(json, "called"),
                             since != json.end() && since->is_number_integer() ? since->get<std::int64_t>() : 0,
                             json["instances"].size()};
        if (path != PathOf(found.transaction)) continue;
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_nInstances += found.instances;
        m_Open[found.transaction] = found;
        open.push_back(std::move(found));
    }
    return open;
}

std::uint16_t OpenCommitments::Keep(const OpenCommitment& commitment, const CommitmentData& data) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto known = m_Open.find(commitment.transaction);
    const bool isKnown = known != m_Open.end();
    if (isKnown && known->second.caller != commitment.caller) return kStatusDuplicateTransaction;
    const std::size_t others = m_nInstances - (isKnown ? known->second.instances : 0);
    if ((!isKnown && m_Open.size() >= kMostOpen) || others + data.items.size() > kMostInstances) {
        return kStatusResourceLimitation;
    }
    Json json = {{"schema", kSchema},
                 {"version", 1},
                 {"transaction", commitment.transaction},
                 {"calling", commitment.caller},
                 {"called", commitment.called},
                 {"since", commitment.since},
                 {"instances", Json::array()}};
    for (const CommitmentItem& item : data.items) json["instances"].push_back({item.sopClass, item.sopInstance});
    const std::string text = json.dump() + '\n';
    try {
        MakeDirectory(m_Folder);
    } catch (const Error&) {
        return kStatusResourceLimitation;
    }
    platform::ReplacingFile file;
    file.SetDurable(true);
    if (!file.Open(PathOf(commitment.transaction)) || !file.Write(text.data(), text.size()) || !file.Commit() ||
        !platform::SyncFolder(platform::FolderOf(m_Folder).c_str())) {
        return kStatusResourceLimitation;
    }
    m_nInstances = others + data.items.size();
    m_Open[commitment.transaction] = commitment;
    return kStatusSuccess;
}

std::optional<OpenCommitment> OpenCommitments::Find(const std::string& transaction) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto found = m_Open.find(transaction);
    return found != m_Open.end() ? std::optional(found->second) : std::nullopt;
}

std::optional<CommitmentData> OpenCommitments::Read(const std::string& transaction) const {
    const Json json = ReadFile(PathOf(transaction));
    if (json.is_null()) return std::nullopt;
    CommitmentData data{transaction, {}};
    for (const Json& item : json["instances"]) {
        if (!item.is_array() || item.size() != 2 || !item[0].is_string() || !item[1].is_string()) return std::nullopt;
        data.items.push_back({item[0].get<std::string>(), item[1].get<std::string>()});
    }
    return data;
}

void OpenCommitments::Close(const std::string& transaction) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const auto found = m_Open.find(transaction);
    if (found == m_Open.end()) return;
    m_nInstances -= found->second.instances;
    m_Open.erase(found);
    RemoveFile(PathOf(transaction));
    if (m_Open.empty()) platform::RemoveFolder(m_Folder.c_str());  // stays where another receiver has requests in it
}

}  // namespace korvane
