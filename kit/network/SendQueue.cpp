#include "SendQueue.h"

#include "../core/Error.h"
#include "../core/Paths.h"

#include "platform/ReplacingFile.h"

#include <cerrno>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

constexpr char kSchema[] = "korvane.send-queue";

std::string AbsolutePath(const std::string& path) {
    std::error_code error;
    const auto absolute = std::filesystem::absolute(PathFromText(path), error);
    return error ? path : TextFromPath(absolute.lexically_normal());
}

long long ChangeTime(const std::string& path) {
    std::error_code error;
    const auto time = std::filesystem::last_write_time(PathFromText(path), error);
    return error ? 0 : static_cast<long long>(time.time_since_epoch().count());
}

std::string KeyOf(const std::string& path, const std::string& instance, std::uint64_t length, long long time) {
    return path + '\n' + instance + '\n' + std::to_string(length) + '\n' + std::to_string(time);
}

// Paths may hold any bytes, and JSON only UTF-8: each byte is a character of ISO 8859-1.
std::string Widen(const std::string& bytes) {
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            text += c;
        } else {
            text += static_cast<char>(0xC0 | (byte >> 6));
            text += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return text;
}

std::string Narrow(const std::string& text) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool isPair = byte >= 0xC0 && i + 1 < text.size();
        bytes +=
            isPair ? static_cast<char>(((byte & 0x03) << 6) | (static_cast<unsigned char>(text[++i]) & 0x3F)) : text[i];
    }
    return bytes;
}

Json HeadOf(const Peer& peer) {
    return {{"schema", kSchema},        {"version", 1},
            {"host", Widen(peer.host)}, {"port", Widen(peer.port)},
            {"calling", peer.ownTitle}, {"called", peer.peerTitle}};
}

}  // namespace

SendQueue::SendQueue(const std::string& path, const Peer& peer) : m_Path(path) {
    errno = 0;
    if (!platform::FileExists(path.c_str())) Begin(peer);
    if (!m_File.OpenToAppend(path.c_str())) {
        if (errno == EBUSY) throw Error(ErrorKind::Disk, path + ": another run uses this queue").InFile(path);
        Fail("cannot open the queue");
    }
    Load(peer);
}

// The first line is whole or not there, so that nothing is ever added to a file that is something else.
void SendQueue::Begin(const Peer& peer) {
    platform::ReplacingFile file;
    file.SetDurable(true);
    const std::string head = HeadOf(peer).dump() + '\n';
    const bool written = file.Open(m_Path) && file.Write(head.data(), head.size());
    if (!written || (!file.Commit(platform::ReplacingFile::Existing::Refuse) && errno != EEXIST)) {
        Fail("cannot make the queue");
    }
}

void SendQueue::Fail(const std::string& what) const {
    throw Error(ErrorKind::Disk, m_Path + ": " + what + ": " + SystemText(errno)).InFile(m_Path);
}

void SendQueue::Load(const Peer& peer) {
    platform::InputFile in;
    if (!in.Open(m_Path.c_str())) Fail("cannot read the queue");
    std::string text(static_cast<std::size_t>(in.GetSize()), '\0');
    text.resize(in.Read(text.data(), text.size()));
    if (in.HasFailed()) Fail("cannot read the queue");
    const auto lineAt = [&](std::size_t begin) { return text.substr(begin, text.find('\n', begin) - begin); };
    const Json head = Json::parse(lineAt(0), nullptr, false);
    if (!(head == HeadOf(peer))) {  // text that is no JSON is neither equal nor unequal to anything
        const bool isQueue = head.is_object() && head.contains("schema") && head["schema"] == kSchema;
        throw Error(ErrorKind::WrongArgument, m_Path + (isQueue ? ": a queue for another peer, or other titles"
                                                                : ": not a queue of files to send"))
            .InFile(m_Path);
    }
    for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1)) {
        if (text.find('\n', at + 1) != std::string::npos) Take(lineAt(at + 1));
    }
    if (!text.ends_with('\n')) Write("");  // ends a line that was cut off
}

// Takes a line of the journal.
void SendQueue::Take(const std::string& line) {
    const Json json = Json::parse(line, nullptr, false);
    if (!json.is_object()) return;
    const auto unsignedOf = [&](const char* name) -> std::uint64_t {
        const auto found = json.find(name);
        return found != json.end() && found->is_number_unsigned() ? found->get<std::uint64_t>() : ~std::uint64_t{0};
    };
    const auto textOf = [&](const char* name) {
        const auto found = json.find(name);
        return found != json.end() && found->is_string() ? Narrow(found->get<std::string>()) : std::string();
    };
    if (unsignedOf("file") == m_Entries.size()) {
        const auto time = json.find("time");
        const long long changed = time != json.end() && time->is_number_integer() ? time->get<long long>() : 0;
        const std::string path = textOf("path");
        m_Known[KeyOf(path, textOf("instance"), unsignedOf("bytes"), changed)] = m_Entries.size();
        m_Entries.push_back({path});
        m_bListed = false;
    }
    if (json.contains("listed")) m_bListed = true;
    const auto mark = [&](const char* word, Stage stage) {
        const std::uint64_t number = unsignedOf(word);
        if (number >= m_Entries.size()) return;
        Entry& entry = m_Entries[static_cast<std::size_t>(number)];
        if (entry.stage != Stage::Stored) entry.stage = stage;
    };
    mark("begun", Stage::Begun);
    mark("refused", Stage::Waiting);
    mark("stored", Stage::Stored);
}

std::vector<std::string> SendQueue::GetUnstored() const {
    if (!m_bListed) {
        throw Error(ErrorKind::WrongArgument,
                    m_Path + ": the queue has no whole list of files; name the files once more")
            .InFile(m_Path);
    }
    std::vector<std::string> paths;
    for (const Entry& entry : m_Entries) {
        if (entry.stage != Stage::Stored) paths.push_back(entry.path);
    }
    return paths;
}

std::vector<SendQueue::Stage> SendQueue::Enter(const std::vector<StorageFile>& files) {
    std::vector<Stage> stages;
    for (const StorageFile& file : files) stages.push_back(EnterOne(file));
    Write(Json{{"listed", m_Entries.size()}}.dump());
    Sync();
    return stages;
}

SendQueue::Stage SendQueue::EnterOne(const StorageFile& file) {
    const std::string path = AbsolutePath(file.path);
    const long long time = ChangeTime(file.path);
    const auto [known, isNew] =
        m_Known.try_emplace(KeyOf(path, file.sopInstance, file.dataLength, time), m_Entries.size());
    m_Numbers.push_back(known->second);
    if (!isNew) return m_Entries[known->second].stage;
    const Json line = {{"file", m_Entries.size()},
                       {"path", Widen(path)},
                       {"instance", Widen(file.sopInstance)},
                       {"bytes", file.dataLength},
                       {"time", time}};
    m_Entries.push_back({path});
    Write(line.dump());
    return Stage::Waiting;
}

void SendQueue::NoteBegun(const std::vector<std::size_t>& files) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    for (const std::size_t file : files) Write(Json{{"begun", m_Numbers[file]}}.dump());
    if (!m_File.Sync()) Fail("cannot write the queue");
}

void SendQueue::NoteStored(std::size_t file) {
    Note(file, "stored");
}

void SendQueue::NoteRefused(std::size_t file) {
    Note(file, "refused");
}

void SendQueue::Note(std::size_t file, const char* word) {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    Write(Json{{word, m_Numbers[file]}}.dump());
    if (!m_File.Flush()) Fail("cannot write the queue");
}

void SendQueue::Sync() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (!m_File.Sync()) Fail("cannot write the queue");
}

void SendQueue::Write(const std::string& line) {
    const std::string whole = line + '\n';
    if (!m_File.Write(whole.data(), whole.size())) Fail("cannot write the queue");
}

}  // namespace korvane
