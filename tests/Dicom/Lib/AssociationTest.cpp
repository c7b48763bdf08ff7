#include "NetworkPeers.h"

#include <gtest/gtest.h>

namespace {

using Event = DcmService::Event;

const Bytes kRequest = PduBytes(Request());

// Keeps nothing.
struct NoSink : StorageSink {
    std::uint16_t Begin(const StorageRequest&) override { return kStatusSuccess; }
    std::uint16_t Write(const void*, std::size_t) override { return kStatusSuccess; }
    std::uint16_t End() override { return ++whole, std::uint16_t{kStatusSuccess}; }
    void Discard() override {}
    int whole = 0;
};

struct Served {
    Event event;
    Bytes answer;  // all that the peer got
    std::string error;
    int whole;
};

// An acceptor that meets a peer who says `script` and then closes its sending side, or stays silent. With a pause
// (milliseconds), byte after byte of what stands behind the request.
Served Serve(const Bytes& script, bool closes = true, const AcceptPolicy& policy = {}, int pause = -1) {
    DcmService service;
    DcmSocket peer;
    if (!ConnectPair(service.GetSocket(), peer)) return {Event::Fault, {}, "no connection", 0};
    std::thread sender([&] {
        std::size_t at = pause < 0 ? script.size() : std::min(kRequest.size(), script.size());
        peer.Send(script.data(), static_cast<int>(at));
        for (; at < script.size() && !peer.HasFailed(); ++at) {
            peer.Send(&script[at], 1);
            std::this_thread::sleep_for(std::chrono::milliseconds(pause));
        }
        if (closes) peer.ShutDown();
    });
    service.SetArtim(1);
    if (pause > 0) service.GetSocket().SetTimeout(1);
    NoSink sink;
    const Event event = StorageProvider(service, sink).Serve(policy);
    EXPECT_EQ(service.GetState(), DcmService::State::Idle);
    EXPECT_FALSE(service.GetSocket().IsConnected());
    sender.join();
    return {event, ReceiveAll(peer), service.GetError(), sink.whole};
}

// A requestor that meets a server who says `script` and closes.
Served Ask(const Bytes& script, bool closes = true) {
    Served result{};
    Server server([&](DcmService& peer) {
        SendBytes(peer.GetSocket(), script);
        if (closes) peer.GetSocket().ShutDown();
        result.answer = ReceiveAll(peer.GetSocket());
    });
    DcmService user;
    static_cast<AAssociateRQ&>(user) = Request();
    user.GetSocket().SetTimeout(1);
    result.event = user.Associate("127.0.0.1", server.GetPort().c_str());
    std::uint16_t status = 1;
    if (result.event == Event::Accepted) result.event = user.Echo(status);
    if (result.event == Event::Message) result.event = user.Release();
    result.error = user.GetError();
    EXPECT_EQ(user.GetState(), DcmService::State::Idle);
    server.Join();
    return result;
}

Bytes Abort(std::uint8_t reason) {
    return {7, 0, 0, 0, 0, 4, 0, 0, kAbortProvider, reason};
}

const Bytes kUnknownPdu = Abort(kAbortUnrecognizedPdu);
const Bytes kUnexpected = Abort(kAbortUnexpectedPdu);
const Bytes kMisplaced = Abort(kAbortUnexpectedParameter);
const Bytes kInvalid = Abort(kAbortInvalidParameter);

bool EndsWith(const Bytes& bytes, const Bytes& end) {
    return bytes.size() >= end.size() &&
           std::equal(end.begin(), end.end(), bytes.end() - static_cast<long>(end.size()));
}

const Bytes kRelease = PduBytes(AReleaseRQ());
const Bytes kUserAbort = PduBytes(AAbortRQ());
const Bytes kEcho = DataPdu(1, 3, EchoCommand());
const Bytes kStoreHead = DataPdu(3, 3, StoreCommand().Encode());

Bytes Accepted(std::uint32_t maximumLength = 16384) {
    return PduBytes(Acceptance(maximumLength));
}

Bytes EchoAnswer(std::uint16_t messageId = 1) {
    DimseCommand echo;
    echo.field = kEchoRQ;
    echo.messageId = messageId;
    return DataPdu(1, 3, echo.MakeResponse(0).Encode());
}

}  // namespace

TEST(Association, AcceptorAnswersEveryFault) {
    const Bytes data = DataPdu(3, 2, SmallSet());
    Bytes huge = kEcho;
    huge[2] = huge[6] = 0xFF;
    const struct {
        const char* what;
        Bytes script;
        Event event;
        Bytes end;  // of what the acceptor says
    } cases[] = {
        {"good", Join({kRequest, kEcho, kStoreHead, data, kRelease}), Event::Released, PduBytes(AReleaseRP())},
        {"silence", {}, Event::Closed, {}},
        {"data first", kEcho, Event::Fault, kUserAbort},
        {"release first", kRelease, Event::Fault, kUserAbort},
        {"unknown PDU first", {'G', 'E', 'T', ' ', '/'}, Event::Fault, kUserAbort},
        {"request of length 0", {1, 0, 0, 0, 0, 0}, Event::Fault, kUserAbort},
        {"request of length 0xFFFFFFFF", {1, 0, 255, 255, 255, 255}, Event::Fault, kUserAbort},
        {"two requests", Join({kRequest, kRequest}), Event::Fault, kUnexpected},
        {"answer of an acceptor", Join({kRequest, Accepted()}), Event::Fault, kUnexpected},
        {"release reply", Join({kRequest, PduBytes(AReleaseRP())}), Event::Fault, kUnexpected},
        {"abort", Join({kRequest, kUserAbort}), Event::Aborted, {}},
        {"unknown PDU", Join({kRequest, {8, 0, 0, 0, 0, 0}}), Event::Fault, kUnknownPdu},
        {"data of length 0", Join({kRequest, {4, 0, 0, 0, 0, 0}}), Event::Fault, kInvalid},
        {"data of length 0xFFFFFFFF", Join({kRequest, huge}), Event::Fault, kInvalid},
        {"piece beyond its PDU", Join({kRequest, {4, 0, 0, 0, 0, 6, 0, 0, 0, 9, 1, 3}}), Event::Fault, kInvalid},
        {"piece of length 1", Join({kRequest, {4, 0, 0, 0, 0, 6, 0, 0, 0, 1, 1, 3}}), Event::Fault, kInvalid},
        {"context not accepted", Join({kRequest, DataPdu(5, 3, EchoCommand())}), Event::Fault, kInvalid},
        {"data set first", Join({kRequest, data}), Event::Fault, kMisplaced},
        {"command in a message", Join({kRequest, kStoreHead, kEcho}), Event::Fault, kMisplaced},
        {"message on two contexts", Join({kRequest, kStoreHead, DataPdu(1, 2, SmallSet())}), Event::Fault, kMisplaced},
        {"command without sense", Join({kRequest, DataPdu(1, 3, Bytes(20, 255))}), Event::Fault, kInvalid},
        {"command of 100 KB", Join({kRequest, DataPdu(1, 1, Bytes(100000))}), Event::Fault, kInvalid},
        {"answer to nothing", Join({kRequest, EchoAnswer()}), Event::Fault, kUserAbort},
        {"release in a message", Join({kRequest, kStoreHead, kRelease}), Event::Released, PduBytes(AReleaseRP())},
    };
    for (const auto& c : cases) {
        const Served served = Serve(c.script);
        EXPECT_EQ(served.event, c.event) << c.what << ": " << served.error;
        EXPECT_TRUE(EndsWith(served.answer, c.end)) << c.what;
        EXPECT_EQ(served.error.empty(), c.event == Event::Released) << c.what;
    }
    EXPECT_EQ(Serve({}, false).event, Event::TimedOut) << "connects and says nothing";
    EXPECT_EQ(Serve({1, 0, 0}, false).event, Event::TimedOut) << "nor does what begins well hold it";
}

TEST(Association, PeerClosesAnywhere) {
    const Bytes script =
        Join({kRequest, kEcho, kStoreHead, DataPdu(3, 0, Bytes(SmallSet())), DataPdu(3, 2, {}), kRelease});
    for (std::size_t count = 0; count < script.size(); count += 7) {
        const Served served = Serve(Bytes(script.begin(), script.begin() + static_cast<long>(count)));
        EXPECT_EQ(served.event, Event::Closed) << count;
        EXPECT_LE(served.whole, count > script.size() - kRelease.size() ? 1 : 0) << count;
    }
    const Bytes answers = Join({Accepted(), EchoAnswer(), PduBytes(AReleaseRP())});
    for (std::size_t count = 0; count < answers.size(); count += 7) {
        EXPECT_EQ(Ask(Bytes(answers.begin(), answers.begin() + static_cast<long>(count))).event, Event::Closed)
            << count;
    }
    EXPECT_EQ(Ask(answers).event, Event::Released);
}

TEST(Association, BytesOneByOne) {
    EXPECT_EQ(Serve(Join({kRequest, kEcho, kRelease}), true, {}, 0).event, Event::Released);
    EXPECT_EQ(Serve(Join({kRequest, kStoreHead}), true, {}, 50).event, Event::TimedOut) << "no PDU may take for ever";
}

TEST(Association, RequestorMeetsEveryFault) {
    Bytes neverProposed = Accepted();
    neverProposed[6 + 68 + 4 + 21 + 4] = 5;  // the number of the first context
    const struct {
        const char* what;
        Bytes script;
        Event event;
        Bytes end;
    } cases[] = {
        {"abort", kUserAbort, Event::Aborted, {}},
        {"data first", EchoAnswer(), Event::Fault, kUnexpected},
        {"a request", kRequest, Event::Fault, kUnexpected},
        {"unknown PDU", {9, 0, 0, 0, 0, 0}, Event::Fault, kUnknownPdu},
        {"length 0", {2, 0, 0, 0, 0, 0}, Event::Fault, kInvalid},
        {"length 0xFFFFFFFF", {2, 0, 255, 255, 255, 255}, Event::Fault, kInvalid},
        {"what was not proposed", neverProposed, Event::Fault, kInvalid},
        {"no room for data", Accepted(7), Event::Fault, kInvalid},
        {"any length", Join({Accepted(0), EchoAnswer(), PduBytes(AReleaseRP())}), Event::Released, kRelease},
        {"16 bytes", Join({Accepted(16), EchoAnswer(), PduBytes(AReleaseRP())}), Event::Released, kRelease},
        {"answer to another", Join({Accepted(), EchoAnswer(99)}), Event::Fault, kMisplaced},
        {"late data", Join({Accepted(), EchoAnswer(), kEcho, PduBytes(AReleaseRP())}), Event::Released, kRelease},
        {"both release", Join({Accepted(), EchoAnswer(), kRelease, PduBytes(AReleaseRP())}), Event::Released,
         PduBytes(AReleaseRP())},
        {"data behind a release", Join({Accepted(), EchoAnswer(), kRelease, kEcho}), Event::Fault, kUnexpected},
    };
    for (const auto& c : cases) {
        const Served served = Ask(c.script);
        EXPECT_EQ(served.event, c.event) << c.what << ": " << served.error;
        EXPECT_TRUE(EndsWith(served.answer, c.end)) << c.what;
    }
    EXPECT_EQ(Ask({}, false).event, Event::TimedOut);
    EXPECT_EQ(Ask(Accepted(), false).event, Event::TimedOut);
}

TEST(Association, RejectsOfEveryKindReachTheRequestor) {
    const auto reject = [](AcceptPolicy policy, const AAssociateRQ& request) {
        const Served served = Serve(PduBytes(request), true, policy);
        EXPECT_EQ(served.event, Event::Rejected);
        const Served asked = Ask(served.answer);
        EXPECT_EQ(asked.event, Event::Rejected);
        EXPECT_EQ(asked.error, served.error);
        return asked.error.substr(asked.error.rfind(':') + 2);
    };
    EXPECT_EQ(reject({"OTHER", {}, {}, {}}, Request()), "called AE title not recognized");
    EXPECT_EQ(reject({"", {"A", "B"}, {}, {}}, Request()), "calling AE title not recognized");
    EXPECT_EQ(reject({"", {}, {}, {}, kRejectedTransient}, Request()), "temporary congestion");
    AAssociateRQ request = Request();
    request.m_ApplicationContext.Set("1.2.3");
    EXPECT_EQ(reject({}, request), "application context name not supported");
    request.m_ProtocolVersion = 2;
    EXPECT_EQ(reject({}, request), "protocol version not supported");
    EXPECT_EQ(Serve(Join({kRequest, kRelease}), true, {"ARCHIVE", {}, {}, {}}).event, Event::Released);
}

TEST(Association, NegotiatesEachOf128Contexts) {
    AAssociateRQ request = Request();
    request.m_Contexts.clear();
    for (int i = 0; i < 128; ++i) {
        const std::string sopClass = i % 2 != 0 ? kCtClass : "1.2.840.10008.5.1.4.1.2.2.1";  // storage; a query
        request.Propose(sopClass, {std::string(kDeflatedUid), i % 4 == 3 ? std::string(kRleUid) : "1.2.3"});
    }
    request.m_Reserved3.back() = 7;
    EXPECT_EQ(request.m_Contexts.back().id, 255);
    EXPECT_EQ(request.Propose("1.2"), 0);
    const Served served = Serve(Join({PduBytes(request), kRelease}));
    EXPECT_EQ(served.event, Event::Released);
    AAssociateAC answer;
    ASSERT_EQ(ReadFrom(answer, served.answer), 1);
    ASSERT_EQ(answer.m_Contexts.size(), 128U);
    EXPECT_EQ(answer.m_Reserved3, request.m_Reserved3);
    for (int i = 0; i < 128; ++i) {
        EXPECT_EQ(answer.m_Contexts[i].result, i % 2 == 0   ? kContextAbstractSyntaxNotSupported
                                               : i % 4 == 1 ? kContextTransferSyntaxesNotSupported
                                                            : kContextAccepted);
    }
    request.m_Contexts[5].id = 1;
    EXPECT_EQ(Serve(PduBytes(request)).event, Event::Fault) << "two of one number";
}
