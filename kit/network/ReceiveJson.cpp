// The receiver's events as JSON.
#include "../core/TextEncoding.h"
#include "Receive.h"

#include <nlohmann/json.hpp>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

std::string Text(const std::string& text) {
    return TextDecoder("ISO_IR 192").ToUtf8(text);
}

std::string Line(const char* event, const Json& members) {
    Json json = {{"schema", "korvane.receive"}, {"version", 1}, {"event", event}};
    json.update(members);
    return json.dump();
}

}  // namespace

std::string ListeningJson(std::uint16_t port) {
    return Line("listening", {{"port", port}});
}

std::string ToJson(const ReceivedFile& file) {
    Json members = {{"path", Text(file.path)},
                    {"sopClass", Text(file.sopClass)},
                    {"sopInstance", Text(file.sopInstance)},
                    {"transferSyntax", Text(file.transferSyntax)},
                    {"calling", Text(file.caller)},
                    {"status", file.status},
                    {"why", Text(file.why)}};
    if (!file.remark.empty()) members["remark"] = Text(file.remark);
    return Line("file", members);
}

std::string ToJson(const ReceivedAssociation& association) {
    return Line("association", {{"address", association.address},
                                {"calling", Text(association.caller)},
                                {"released", association.released},
                                {"error", Text(association.error)},
                                {"stored", association.stored},
                                {"refused", association.refused}});
}

}  // namespace korvane
