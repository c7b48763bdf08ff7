// The receiver's events as JSON.
#include "../core/JsonText.h"
#include "Receive.h"

#include <nlohmann/json.hpp>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

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
    Json members = {{"path", JsonText(file.path)},
                    {"sopClass", JsonText(file.sopClass)},
                    {"sopInstance", JsonText(file.sopInstance)},
                    {"transferSyntax", JsonText(file.transferSyntax)},
                    {"calling", JsonText(file.caller)},
                    {"status", file.status},
                    {"why", JsonText(file.why)}};
    if (!file.remark.empty()) members["remark"] = JsonText(file.remark);
    return Line("file", members);
}

std::string ToJson(const ReceivedAssociation& association) {
    return Line("association", {{"address", association.address},
                                {"calling", JsonText(association.caller)},
                                {"released", association.released},
                                {"error", JsonText(association.error)},
                                {"stored", association.stored},
                                {"refused", association.refused}});
}

}  // namespace korvane
