// The receiver's events as JSON.
#include "../core/JsonText.h"
#include "../core/TimeText.h"
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
    return Line("listening", {{"port", port}, {"time", TimeNow()}});
}

std::string ToJson(const ReceivedFile& file) {
    Json members = {{"path", JsonText(file.path)},
                    {"sopClass", JsonText(file.sopClass)},
                    {"sopInstance", JsonText(file.sopInstance)},
                    {"transferSyntax", JsonText(file.transferSyntax)},
                    {"calling", JsonText(file.caller)},
                    {"status", file.status},
                    {"why", JsonText(file.why)}};
    if (!file.time.empty()) members["time"] = file.time;
    if (!file.study.empty()) members["study"] = JsonText(file.study);
    if (!file.remark.empty()) members["remark"] = JsonText(file.remark);
    return Line("file", members);
}

std::string ToJson(const ReceivedAssociation& association) {
    return Line("association", {{"address", association.address},
                                {"calling", JsonText(association.caller)},
                                {"released", association.released},
                                {"error", JsonText(association.error)},
                                {"stored", association.stored},
                                {"refused", association.refused},
                                {"called", JsonText(association.called)},
                                {"begin", association.begin},
                                {"time", association.end},
                                {"encrypted", association.encrypted}});
}

std::string ToJson(const ReceivedStudy& study) {
    return Line("study", {{"study", JsonText(study.study)},
                          {"patient", JsonText(study.patient)},
                          {"calling", JsonText(study.caller)},
                          {"folder", JsonText(study.folder)},
                          {"files", study.files},
                          {"time", TimeNow()}});
}

std::string ToJson(const ReceivedCommitment& commitment) {
    Json failures = Json::array();
    for (const ReceivedCommitment::Failure& failure : commitment.failures) {
        failures.push_back({{"sopClass", JsonText(failure.sopClass)},
                            {"sopInstance", JsonText(failure.sopInstance)},
                            {"status", failure.status},
                            {"why", failure.why}});
    }
    return Line("commitment", {{"transaction", commitment.transaction},
                               {"calling", JsonText(commitment.caller)},
                               {"instances", commitment.instances},
                               {"failed", commitment.failed},
                               {"failures", failures},
                               {"reported", commitment.reported},
                               {"over", commitment.isOver},
                               {"why", JsonText(commitment.why)},
                               {"time", commitment.time}});
}

}  // namespace korvane
