#include "NetworkPeers.h"

#include <gtest/gtest.h>

namespace {

// Reads bytes with the class of their type; all pieces of P-DATA too.
int ReadAny(const Bytes& bytes) {
    DcmService service;
    switch (bytes[0]) {
    case kAssociateRQ: return ReadFrom<AAssociateRQ>(service, bytes);
    case kAssociateAC: return ReadFrom<AAssociateAC>(service, bytes);
    case kAssociateRJ: return ReadFrom<AAssociateRJ>(service, bytes);
    case kReleaseRQ: return ReadFrom<AReleaseRQ>(service, bytes);
    case kReleaseRP: return ReadFrom<AReleaseRP>(service, bytes);
    case kAbortRQ: return ReadFrom<AAbortRQ>(service, bytes);
    default: break;
    }
    MemoryInputBuffer in(bytes.data() + 1, bytes.size() - 1);
    if (service.PDataTF::ReadPDU(in, bytes[0]) == 0) return 0;
    while (service.HasPDV()) {
        if (service.ReadPDV(in) == 0 || !in.Skip(service.m_DataLength)) return 0;
    }
    return 1;
}

}  // namespace

TEST(Pdu, RequestHasTheStandardsLayout) {
    AAssociateRQ request;
    EXPECT_EQ(std::string(request.m_TransferSyntax.m_Text, 64), "1.2.840.10008.1.2" + std::string(47, '\0'));
    request.m_CalledAETitle = "CALLED";
    request.m_CallingAETitle = "A TITLE THAT IS TOO LONG";
    request.m_UserInformation.maximumLength = 0x01020304;
    EXPECT_EQ(request.Propose("1.2.840.10008.1.1"), 1);
    const auto item = [](unsigned char type, const Bytes& content) {
        return Join({{type, 0}, be.Number(static_cast<unsigned>(content.size()), 2), content});
    };
    const Bytes context =
        Join({{1, 0, 0, 0}, item(0x30, Text("1.2.840.10008.1.1")), item(0x40, Text("1.2.840.10008.1.2"))});
    const Bytes user = Join({item(0x51, be.U32(0x01020304)), item(0x52, Text("1.2.999.0.1.7310057.2.555.20000624")),
                             item(0x55, Text("/QX/W32//1.6.7"))});
    const Bytes body = Join({{0, 1, 0, 0},
                             Text("CALLED          A TITLE THAT IS "),
                             Bytes(32),
                             item(0x10, Text("1.2.840.10008.3.1.1.1")),
                             item(0x20, context),
                             item(0x50, user)});
    EXPECT_EQ(PduBytes(request), Join({{1, 0}, be.U32(static_cast<unsigned>(body.size())), body}));
}

TEST(Pdu, AssociationsComeBackAsTheyWereWritten) {
    AAssociateRQ request = Request();
    UserInformation& user = request.m_UserInformation;
    user.hasWindow = true;
    user.operationsInvoked = 5;
    user.roles = {{UidField(kCtClass), 0, 1}};
    AAssociateRQ read;
    ASSERT_EQ(ReadFrom(read, PduBytes(request)), 1);
    EXPECT_EQ(PduBytes(read), PduBytes(request));
    AAssociateAC answer;
    AAssociateAC answerRead;
    answer.m_Contexts = {{1, kContextAccepted, UidField("1.2.840.10008.1.2")}, {3, kContextUserRejects, {}}};
    ASSERT_EQ(ReadFrom(answerRead, PduBytes(answer)), 1);
    EXPECT_EQ(PduBytes(answerRead), PduBytes(answer));
}

TEST(Pdu, NoLengthIsBelieved) {
    const Bytes whole[] = {PduBytes(Request()),         PduBytes(Acceptance()), PduBytes(AAssociateRJ()),
                           PduBytes(AReleaseRQ()),      PduBytes(AReleaseRP()), PduBytes(AAbortRQ()),
                           DataPdu(1, 3, EchoCommand())};
    for (const Bytes& bytes : whole) {
        EXPECT_EQ(ReadAny(bytes), 1);
        for (std::size_t cut = 1; cut < bytes.size(); ++cut) {
            EXPECT_EQ(ReadAny(Bytes(bytes.begin(), bytes.end() - static_cast<long>(cut))), 0) << cut;
        }
        for (const unsigned length : {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
            Bytes changed = bytes;
            const Bytes number = be.U32(length);
            std::copy(number.begin(), number.end(), changed.begin() + 2);
            EXPECT_EQ(ReadAny(changed), 0) << length;
        }
        // Any length field inside, too long: refused or passed over, never read beyond the end.
        for (std::size_t at = 6; at + 1 < bytes.size(); ++at) {
            Bytes changed = bytes;
            changed[at] = changed[at + 1] = 0xFF;
            ReadAny(changed);
        }
    }
    PDataTF limited;
    limited.m_LengthLimit = 100;
    EXPECT_EQ(ReadFrom(limited, DataPdu(1, 3, Bytes(94))), 1);
    EXPECT_EQ(ReadFrom(limited, DataPdu(1, 3, Bytes(96))), 0);
    AAssociateRQ crowded = Request();
    crowded.m_Contexts.resize(129, crowded.m_Contexts[0]);
    EXPECT_EQ(ReadAny(PduBytes(crowded)), 0);
    crowded.m_Contexts.resize(1);
    crowded.m_Contexts[0].transferSyntaxes.resize(900, UidField("1.2"));
    AAssociateRQ read;
    EXPECT_EQ(ReadFrom(read, PduBytes(crowded)), 1);
    EXPECT_EQ(read.m_Contexts[0].transferSyntaxes.size(), kMostSyntaxes);
}

TEST(Pdu, ReasonsInWords) {
    const struct {
        Bytes said;  // of the PDU, the last three bytes
        const char* text;
    } cases[] = {
        {{1, 1, 7}, "rejected (permanent) by the service user: called AE title not recognized"},
        {{2, 3, 1}, "rejected (transient) by the service provider (presentation): temporary congestion"},
        {{1, 2, 2}, "rejected (permanent) by the service provider (ACSE): protocol version not supported"},
        {{9, 200, 255}, "rejected: reason 255"},
        {{0, 0, 0}, "aborted by the service user"},
        {{0, 2, 2}, "aborted by the service provider: unexpected PDU"},
    };
    for (const auto& c : cases) {
        AAssociateRJ reject;
        AAbortRQ abort;
        const Bytes rest = Join({{0, 0, 0, 0, 4, 0}, c.said});
        const bool isReject = c.said[0] != 0;
        EXPECT_EQ(isReject ? ReadFrom(reject, Join({{3}, rest})) : ReadFrom(abort, Join({{7}, rest})), 1);
        EXPECT_EQ(isReject ? reject.GetText() : abort.GetText(), c.text);
    }
    EXPECT_EQ(DimseStatusText(0xA701), "out of resources (0xA701)");
    EXPECT_EQ(DimseStatusText(kStatusDestinationUnknown), "move destination unknown (0xA801)");
    EXPECT_EQ(DimseStatusText(0xFF01), "pending (0xFF01)");
    EXPECT_EQ(DimseStatusText(0xFF02), "unknown status (0xFF02)");
    EXPECT_EQ(DimseStatusText(0xB123), "warning (0xB123)");
    EXPECT_TRUE(IsStored(0xB007) && IsStored(0) && !IsStored(0xA900) && !IsStored(0xC000));
}

TEST(Pdu, ReleaseAndItsDumpsToTheLetter) {
    const std::string dumped = Traced(kDumpPData | kDumpPduBanner, [] {
        EXPECT_EQ(PduBytes(AReleaseRQ()), (Bytes{5, 0, 0, 0, 0, 4, 0, 0, 0, 0}));
        AReleaseRP reply;
        EXPECT_EQ(ReadFrom(reply, {6, 1, 0, 0, 0, 4, 0, 0, 0, 9}), 1);
    });
    EXPECT_EQ(dumped, "------------------------------------------------Writing  AReleaseRQ (0x05) Type=05\n"
                      "\tReserved1[1]=00\n\tLength[4]=4\n\tReserved2[1]=00\n"
                      "-----------------------------------------------------\n"
                      "---------------------------------------------------------"
                      "Reading AReleaseRP (0x06) Type=02.2X\n"
                      "\tReserved1[1]=01\n\tLength[4]=4\n\tReserved2[1]=09\n"
                      "---------------------------------------------\n");
}

TEST(Pdu, CommandSets) {
    const Bytes bytes = StoreCommand().Encode();
    EXPECT_EQ(platform::LoadLittle<std::uint32_t>(&bytes[8]), bytes.size() - 12);
    DimseCommand read;
    ASSERT_EQ(read.Decode(bytes.data(), bytes.size()), 1);
    EXPECT_EQ(read.Encode(), bytes);
    EXPECT_EQ(read.MakeResponse(0xA700).Encode().size() % 2, 0U);
    for (std::size_t count = 0; count < bytes.size(); ++count) {
        const int decoded = read.Decode(bytes.data(), count);  // whole at the end of an element behind the field
        EXPECT_TRUE(decoded == 0 || read.field == kStoreRQ) << count;
    }
    const Bytes otherGroup = le.Implicit(0x0008, 0x0100, "ab");
    EXPECT_EQ(read.Decode(otherGroup.data(), otherGroup.size()), 0);
}
