#include "Echo.h"

#include "../core/Error.h"
#include "../core/JsonText.h"
#include "PeerConnection.h"

#include <chrono>
#include <nlohmann/json.hpp>

namespace korvane {

EchoReport Echo(const Peer& peer, const EchoOptions& options) {
    const Watch watch(options.watcher);
    PeerConnection connection(peer, watch);
    DcmService& service = connection.GetService();
    service.Propose(kVerificationClass);
    const auto start = std::chrono::steady_clock::now();
    connection.Associate();
    std::uint16_t status = kStatusSuccess;
    const DcmService::Event event = service.Echo(status);
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    watch.StopIfAsked();
    if (event != DcmService::Event::Message) throw connection.MakeError();
    EchoReport report{peer, service.AAssociateAC::m_UserInformation.implementationVersion, took.count()};
    service.Release();
    if (status != kStatusSuccess) {
        throw Error(ErrorKind::Refused, peer.Name() + ": " + DimseStatusText(status));
    }
    return report;
}

std::string ToJson(const EchoReport& report) {
    nlohmann::ordered_json json;
    json["schema"] = "korvane.echo";
    json["version"] = 1;
    json["host"] = JsonText(report.peer.host);
    json["port"] = JsonText(report.peer.port);
    json["calling"] = report.peer.ownTitle;
    json["called"] = report.peer.peerTitle;
    json["implementation"] = JsonText(report.implementation);
    json["milliseconds"] = report.milliseconds;
    return json.dump(2);
}

}  // namespace korvane
