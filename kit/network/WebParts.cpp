#include "WebParts.h"

#include "../core/JsonText.h"

#include "Dicom/Lib/network/StorageProvider.h"

#include "platform/File.h"
#include "platform/ReplacingFile.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

namespace korvane {

namespace {

constexpr std::size_t kMostBytes = std::size_t{512} << 20;  // of the frames of an instance
constexpr std::size_t kMostMetadata = std::size_t{128} << 20;

// Collects the parts of an answer in memory.
class FrameTaker : public MultipartTaker {
public:
    explicit FrameTaker(std::size_t most) : m_nMost(most) {}

    void BeginPart(const WebHeaders& headers) override {
        if (parts.size() >= m_nMost) throw Error(ErrorKind::Refused, "more frames than were asked for");
        const auto type = headers.find("content-type");
        parts.emplace_back(type != headers.end() ? MediaTypeOf(type->second) : "application/octet-stream", "");
    }
    void TakeBytes(std::string_view bytes) override {
        m_nBytes += bytes.size();
        if (m_nBytes > kMostBytes) throw Error(ErrorKind::Refused, "frames of more than 512 MB");
        parts.back().second += bytes;
    }
    void EndPart() override {}

    std::vector<std::pair<std::string, std::string>> parts;  // media types and bytes

private:
    std::size_t m_nMost;
    std::size_t m_nBytes = 0;
};

// What a file of a media type is called at its end (PS3.18 8.7.3).
std::string EndOf(const std::string& media) {
    constexpr std::pair<const char*, const char*> kEnds[] = {{"application/octet-stream", ".raw"},
                                                             {"image/jpeg", ".jpg"},
                                                             {"image/jls", ".jls"},
                                                             {"image/jp2", ".jp2"},
                                                             {"image/jpx", ".jpx"},
                                                             {"image/dicom-rle", ".rle"},
                                                             {"image/x-dicom-rle", ".rle"},
                                                             {"image/x-jls", ".jls"},
                                                             {"image/jphc", ".jphc"}};
    for (const auto& [type, end] : kEnds) {
        if (media == type) return end;
    }
    throw Error(ErrorKind::Unsupported, "a frame that is " + media);
}

bool HasBytes(const std::string& path, const std::string& bytes) {
    platform::InputFile file;
    if (!file.Open(path.c_str()) || file.GetSize() != bytes.size()) return false;
    std::string there(bytes.size(), '\0');
    return file.Read(there.data(), there.size()) == there.size() && there == bytes;
}

}  // namespace

HttpAnswer FetchMultipart(WebService& service, const std::string& address, const std::string& type,
                          MultipartTaker& taker) {
    std::optional<MultipartReader> reader;
    bool isSingle = false;
    const std::string accept = "multipart/related; type=\"" + type + "\"; transfer-syntax=*";
    const WebOutcome outcome = service.Get(address, accept, [&](const HttpAnswer& answer, std::string_view bytes) {
        if (!reader && !isSingle) {
            const std::string content = answer.Header("content-type");
            const std::string media = MediaTypeOf(content);
            if (media == "multipart/related") {
                reader.emplace(ParameterOf(content, "boundary"), taker);
            } else if (media == type) {  // a single part without its cover
                isSingle = true;
                taker.BeginPart({{"content-type", content}});
            } else {
                service.Refuse("answers with " + (media.empty() ? "no content type" : media) +
                               " where objects or frames were asked for");
            }
        }
        if (isSingle) {
            taker.TakeBytes(bytes);
        } else {
            reader->Feed(bytes);
        }
    });
    if (!outcome.IsGood()) throw Refused(service.AddressOf(address) + ": " + outcome.Words(), outcome);
    if (isSingle) taker.EndPart();
    if (reader && !reader->IsWhole()) throw ConnectionLost(service.AddressOf(address) + ": an answer that was cut off");
    return outcome.answer;
}

void WebPartFiles::FetchMetadata(
    const std::string& address, const std::set<std::string>& wanted,
    const std::function<void(const std::string&, const std::vector<std::string>&)>& note) const {
    using Json = nlohmann::ordered_json;
    std::string text;
    m_Service.GetText(address + "/metadata", "application/dicom+json", kMostMetadata, text);
    const Json list = ParsedJson<Json>(text);
    if (!list.is_array()) m_Service.Refuse("metadata that is no list of data sets");
    for (const Json& object : list) {
        std::string uid;
        try {
            uid = object.at("00080018").at("Value").at(0).get<std::string>();
        } catch (const Json::exception&) {
            m_Service.Refuse("metadata without a SOP instance");
        }
        if (!IsUid(uid)) m_Service.Refuse("metadata of " + uid + ", which is no UID");
        if (!wanted.contains(uid)) m_Service.Refuse("metadata of " + uid + ", which was not asked for");
        note(uid, {Write(uid + ".json", object.dump(1) + '\n')});
    }
}

std::vector<std::string> WebPartFiles::FetchFrames(const std::string& address, const std::string& uid) const {
    std::string numbers;
    for (const unsigned frame : m_Options.frames) numbers += (numbers.empty() ? "" : ",") + std::to_string(frame);
    std::vector<std::pair<std::string, std::string>> parts;
    m_Service.Insist([&] {
        FrameTaker taker(m_Options.frames.size());
        WebOutcome outcome;
        try {
            outcome.answer =
                FetchMultipart(m_Service, address + "/frames/" + numbers, "application/octet-stream", taker);
        } catch (const Refused& refused) {
            return refused.outcome;
        }
        parts = std::move(taker.parts);
        return outcome;
    });
    if (parts.size() != m_Options.frames.size()) {
        m_Service.Refuse(uid + ": " + std::to_string(parts.size()) + " frames came for " +
                         std::to_string(m_Options.frames.size()) + " that were asked for");
    }
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const std::string name = uid + "-frame-" + std::to_string(m_Options.frames[i]) + EndOf(parts[i].first);
        paths.push_back(Write(name, parts[i].second));
    }
    return paths;
}

// The same bytes are not written twice.
std::string WebPartFiles::Write(const std::string& name, const std::string& bytes) const {
    using Existing = platform::ReplacingFile::Existing;
    std::string path = m_Options.folder + "/" + name;
    platform::ReplacingFile file;
    file.SetDurable(m_Options.sync);
    errno = 0;
    const bool written = file.Open(path) && file.Write(bytes.data(), bytes.size()) &&
                         file.Commit(m_Options.replace ? Existing::Replace : Existing::Refuse);
    if (written || (errno == EEXIST && HasBytes(path, bytes))) return path;
    if (errno == EEXIST) {
        throw Error(ErrorKind::WrongArgument, path + ": there is another file of this name").InFile(path);
    }
    throw Error(ErrorKind::Disk, path + ": " + SystemText(errno)).InFile(path);
}

}  // namespace korvane
