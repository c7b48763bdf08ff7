#include "NetworkPeers.h"

#include <gtest/gtest.h>

namespace {

using Event = DcmService::Event;

/// Takes nothing, and counts what it is asked.
struct NoSink : StorageSink {
    std::uint16_t Begin(const StorageRequest&) override { return kStatusSuccess; }
    std::uint16_t Write(const void*, std::size_t count) override {
        bytes += count;
        return kStatusSuccess;
    }
    std::uint16_t End() override {
        ++whole;
        return kStatusSuccess;
    }
    void Discard() override { ++discarded; }
    std::size_t bytes = 0;
    int whole = 0;
    int discarded = 0;
};

struct Served {
    Event event;
    Bytes answer;  // all that the peer got
    std::string error;
    int whole;
};

/// An acceptor that meets a peer who says `script` and then closes its sending side, or stays silent.
Served Serve(const Bytes& script, bool closes = true, const AcceptPolicy& policy = {}) {
    DcmService service;
    DcmSocket peer;
    if (!ConnectPair(service.GetSocket(), peer)) return {Event::Fault, {}, "no connection", 0};
    SendBytes(peer, script);
    if (closes) peer.ShutDown();
    service.SetArtim(1);
    NoSink sink;
    const Event event = StorageProvider(service, sink).Serve(policy);
    EXPECT_EQ(service.GetState(), DcmService::State::Idle);
    EXPECT_FALSE(service.GetSocket().IsConnected());
    return {event, ReceiveAll(peer), service.GetError(), sink.whole};
}

/// A requestor that meets a server who says `script` and closes.
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

bool EndsWith(const Bytes& bytes, const Bytes& end) {
    return bytes.size() >= end.size() &&
           std::equal(end.begin(), end.end(), bytes.end() - static_cast<long>(end.size()));
}

const Bytes kRequest = PduBytes(Request());
const Bytes kRelease = PduBytes(AReleaseRQ());
const Bytes kEcho = DataPdu(1, 3, EchoCommand());
const Bytes kStoreHead = DataPdu(3, 3, StoreCommand().Encode());

Bytes Accepted(std::uint32_t maximumLength = 16384) {
    AAssociateAC answer;
    answer.m_UserInformation.maximumLength = maximumLength;
    answer.m_Contexts = {{1, 0, UidField("1.2.840.10008.1.2")}, {3, 0, UidField("1.2.840.10008.1.2.1")}};
    return PduBytes(answer);
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
        {"data first", kEcho, Event::Fault, Abort(kAbortUnexpectedPdu)},
        {"release first", kRelease, Event::Fault, Abort(kAbortUnexpectedPdu)},
        {"unknown PDU first", {'G', 'E', 'T', ' ', '/'}, Event::Fault, Abort(kAbortUnrecognizedPdu)},
        {"request of length 0", {1, 0, 0, 0, 0, 0}, Event::Fault, Abort(kAbortInvalidParameter)},
        {"request of length 0xFFFFFFFF", {1, 0, 255, 255, 255, 255}, Event::Fault, Abort(kAbortInvalidParameter)},
        {"two requests", Join({kRequest, kRequest}), Event::Fault, Abort(kAbortUnexpectedPdu)},
        {"answer of an acceptor", Join({kRequest, Accepted()}), Event::Fault, Abort(kAbortUnexpectedPdu)},
        {"release reply", Join({kRequest, PduBytes(AReleaseRP())}), Event::Fault, Abort(kAbortUnexpectedPdu)},
        {"abort", Join({kRequest, PduBytes(AAbortRQ())}), Event::Aborted, {}},
        {"unknown PDU", Join({kRequest, {8, 0, 0, 0, 0, 0}}), Event::Fault, Abort(kAbortUnrecognizedPdu)},
        {"data of length 0", Join({kRequest, {4, 0, 0, 0, 0, 0}}), Event::Fault, Abort(kAbortInvalidParameter)},
        {"data of length 0xFFFFFFFF", Join({kRequest, huge}), Event::Fault, Abort(kAbortInvalidParameter)},
        {"piece beyond its PDU", Join({kRequest, {4, 0, 0, 0, 0, 6, 0, 0, 0, 9, 1, 3}}), Event::Fault,
         Abort(kAbortInvalidParameter)},
        {"piece of length 1", Join({kRequest, {4, 0, 0, 0, 0, 6, 0, 0, 0, 1, 1, 3}}), Event::Fault,
         Abort(kAbortInvalidParameter)},
        {"context not accepted", Join({kRequest, DataPdu(5, 3, EchoCommand())}), Event::Fault,
         Abort(kAbortInvalidParameter)},
        {"data set first", Join({kRequest, data}), Event::Fault, Abort(kAbortUnexpectedParameter)},
        {"command in a message", Join({kRequest, kStoreHead, kEcho}), Event::Fault, Abort(kAbortUnexpectedParameter)},
        {"message on two contexts", Join({kRequest, kStoreHead, DataPdu(1, 2, SmallSet())}), Event::Fault,
         Abort(kAbortUnexpectedParameter)},
        {"command without sense", Join({kRequest, DataPdu(1, 3, Bytes(20, 255))}), Event::Fault,
         Abort(kAbortInvalidParameter)},
        {"command of 100 KB", Join({kRequest, DataPdu(1, 1, Bytes(100000))}), Event::Fault,
         Abort(kAbortInvalidParameter)},
        {"answer to nothing", Join({kRequest, EchoAnswer()}), Event::Fault, PduBytes(AAbortRQ())},
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
    DcmService service;
    DcmSocket peer;
    ASSERT_TRUE(ConnectPair(service.GetSocket(), peer));
    std::thread dribble([&] {
        for (const unsigned char byte : Join({kRequest, kEcho, kRelease})) peer.Send(&byte, 1);
        peer.ShutDown();
    });
    NoSink sink;
    EXPECT_EQ(StorageProvider(service, sink).Serve({}), Event::Released) << service.GetError();
    dribble.join();
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
        {"abort", PduBytes(AAbortRQ()), Event::Aborted, {}},
        {"data first", EchoAnswer(), Event::Fault, Abort(kAbortUnexpectedPdu)},
        {"a request", kRequest, Event::Fault, Abort(kAbortUnexpectedPdu)},
        {"unknown PDU", {9, 0, 0, 0, 0, 0}, Event::Fault, Abort(kAbortUnrecognizedPdu)},
        {"length 0", {2, 0, 0, 0, 0, 0}, Event::Fault, Abort(kAbortInvalidParameter)},
        {"length 0xFFFFFFFF", {2, 0, 255, 255, 255, 255}, Event::Fault, Abort(kAbortInvalidParameter)},
        {"what was not proposed", neverProposed, Event::Fault, Abort(kAbortInvalidParameter)},
        {"no room for data", Accepted(7), Event::Fault, Abort(kAbortInvalidParameter)},
        {"any length", Join({Accepted(0), EchoAnswer(), PduBytes(AReleaseRP())}), Event::Released, kRelease},
        {"16 bytes", Join({Accepted(16), EchoAnswer(), PduBytes(AReleaseRP())}), Event::Released, kRelease},
        {"answer to another", Join({Accepted(), EchoAnswer(99)}), Event::Fault, Abort(kAbortUnexpectedParameter)},
        {"late data", Join({Accepted(), EchoAnswer(), kEcho, PduBytes(AReleaseRP())}), Event::Released, kRelease},
        {"both release", Join({Accepted(), EchoAnswer(), kRelease, PduBytes(AReleaseRP())}), Event::Released,
         PduBytes(AReleaseRP())},
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
    AcceptPolicy called;
    called.aeTitle = "OTHER";
    EXPECT_EQ(reject(called, Request()), "called AE title not recognized");
    AcceptPolicy calling;
    calling.callingTitles = {"A", "B"};
    EXPECT_EQ(reject(calling, Request()), "calling AE title not recognized");
    AAssociateRQ request = Request();
    request.m_ApplicationContext.Set("1.2.3");
    EXPECT_EQ(reject({}, request), "application context name not supported");
    request = Request();
    request.m_ProtocolVersion = 2;
    EXPECT_EQ(reject({}, request), "protocol version not supported");
    AcceptPolicy full;
    full.rejectResult = kRejectedTransient;
    EXPECT_EQ(reject(full, Request()), "temporary congestion");
    called.aeTitle = "ARCHIVE";
    EXPECT_EQ(Serve(Join({kRequest, kRelease}), true, called).event, Event::Released);
}

TEST(Association, NegotiatesEachOf128Contexts) {
    AAssociateRQ request = Request();
    request.m_Contexts.clear();
    for (int i = 0; i < 128; ++i) {
        const std::string sopClass = i % 2 != 0 ? kCtClass : "1.2.840.10008.5.1.4.1.2.2.1";  // storage; a query
        request.Propose(sopClass, {"1.2.840.10008.1.2.1.99", i % 4 == 3 ? "1.2.840.10008.1.2.5" : "1.2.3"});
    }
    EXPECT_EQ(request.m_Contexts.back().id, 255);
    EXPECT_EQ(request.Propose("1.2"), 0);
    const Served served = Serve(Join({PduBytes(request), kRelease}));
    EXPECT_EQ(served.event, Event::Released);
    AAssociateAC answer;
    MemoryInputBuffer in(served.answer.data() + 1, served.answer.size() - 1);
    ASSERT_EQ(answer.ReadPDU(in, served.answer[0]), 1);
    ASSERT_EQ(answer.m_Contexts.size(), 128U);
    for (int i = 0; i < 128; ++i) {
        EXPECT_EQ(answer.m_Contexts[i].result, i % 2 == 0   ? kContextAbstractSyntaxNotSupported
                                               : i % 4 == 1 ? kContextTransferSyntaxesNotSupported
                                                            : kContextAccepted);
    }
    request.m_Contexts[5].id = 1;
    EXPECT_EQ(Serve(PduBytes(request)).event, Event::Fault) << "two of one number";
}

TEST(Association, StopCheckEndsAWait) {
    DcmService service;
    DcmSocket peer;
    ASSERT_TRUE(ConnectPair(service.GetSocket(), peer));
    service.SetStopCheck([] { return true; });
    EXPECT_EQ(service.AcceptAssociation({}), Event::Stopped);
}
