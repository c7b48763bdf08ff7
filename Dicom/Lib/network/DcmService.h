// DICOM associations over TCP, as requestor and as acceptor (PS3.8 7 and 9), and the messages on them (PS3.7).
#pragma once

#include "AcceptPolicy.h"
#include "AssociatePDU.h"
#include "DimseCommand.h"
#include "PDataTF.h"
#include "ReleasePDU.h"
#include "SocketBuffer.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// A context that both sides agreed on.
struct AcceptedContext {
    std::uint8_t id = 0;
    std::string sopClass;
    std::string transferSyntax;
};

/// An association, as requestor or as acceptor. It derives from every PDU class, whose fields hold what was sent or
/// received last, and from the buffer that they are written to. One association at a time; when it has ended, the
/// object may begin another.
///
/// Requestor: set titles and contexts of its `AAssociateRQ`, `Associate`, exchange messages, `Release`. Acceptor:
/// connect its socket with `DcmSocket::Accept`, `AcceptAssociation`, then `ReceiveCommand` until the result is
/// something else than `Message`.
///
/// States are those of PS3.8 9.2. A PDU that is malformed, unknown or out of sequence is answered with A-ABORT, and the
/// connection closed. Whatever ends an association closes the connection. Making an object touches no network.
class DcmService : public AAssociateRQ,
                   public AAssociateAC,
                   public AAssociateRJ,
                   public PDataTF,
                   public AReleaseRQ,
                   public AReleaseRP,
                   public AAbortRQ,
                   public SocketBuffer {
public:
    enum class State {
        Idle = 1,             ///< Sta1: no connection
        AwaitingRequest = 2,  ///< Sta2: acceptor, connected
        AwaitingAnswer = 5,   ///< Sta5: requestor, has asked
        Established = 6,      ///< Sta6: messages may flow
        AwaitingRelease = 7,  ///< Sta7: has asked for the release
        AwaitingClose = 13    ///< Sta13: the association is over, the peer is to close the connection
    };

    /// How a wait for the peer ended. All but the first two end the association.
    enum class Event {
        Accepted,  ///< the association is there
        Message,   ///< a command was received
        Released,
        Rejected,
        Aborted,  ///< by the peer
        Closed,   ///< the peer closed the connection, or it broke
        TimedOut,
        Stopped,  ///< the stop check (`SetStopCheck`) said yes
        Fault     ///< the peer broke the protocol and was sent A-ABORT; or the call came in the wrong state
    };

    /// The largest P-DATA length (bytes) that is announced unless `SetMaximumLength` changes it. Longer PDUs are never
    /// sent, even to a peer that would take them.
    static constexpr std::uint32_t kDefaultLength = 128 * 1024;
    static constexpr int kDefaultArtim = 30;  ///< seconds

    DcmService();
    ~DcmService() override;

    /// Seconds that a peer has to send its association request once it is connected, and to close the connection at the
    /// end (the ARTIM timer, PS3.8 9.1.5).
    void SetArtim(int seconds) { m_Artim = seconds; }
    /// The P-DATA length to announce, in bytes; 0: any (PS3.8 D.1).
    void SetMaximumLength(std::uint32_t length) { m_OwnLength = length; }

    /// Connects and asks for an association with the fields of `AAssociateRQ`.
    Event Associate(const char* host, const char* port);
    /// Asks for it on a connection that is there: the one of `SetTransport`.
    Event Associate();
    /// Reads a request from the connected socket and answers it.
    Event AcceptAssociation(const AcceptPolicy& policy);
    /// Releases the association (PS3.8 7.2): asks for it, waits for the answer, answers a peer that asks at the same
    /// time, and closes the connection.
    Event Release();
    /// Sends A-ABORT (PS3.8 7.3) and closes the connection; does nothing without one.
    void Abort(std::uint8_t source = kAbortUser, std::uint8_t reason = kAbortNoReason);

    State GetState() const { return m_State; }
    /// The reason of the last failure, in one line; empty when there was none.
    const std::string& GetError() const { return m_Error; }

    /// The contexts that were agreed on, all or one of them; null where there is no such context. An empty
    /// `transferSyntax` stands for any.
    const std::vector<AcceptedContext>& GetContexts() const { return m_Agreed; }
    const AcceptedContext* FindContext(std::uint8_t id) const;
    const AcceptedContext* FindContext(std::string_view sopClass, std::string_view transferSyntax = {}) const;
    /// The AE titles of the association: the requestor's and the acceptor's.
    const std::string& GetCallingTitle() const { return AAssociateRQ::m_CallingAETitle; }
    const std::string& GetCalledTitle() const { return AAssociateRQ::m_CalledAETitle; }
    /// The largest P-DATA length that is sent on this association, in bytes.
    std::uint32_t GetSendLength() const { return m_SendLength; }

    /// Sends a command; its data set, where it has one, follows through `PDataOutputBuffer`. 1 or 0.
    int SendCommand(std::uint8_t context, const DimseCommand& command);
    /// The next command; `Message`, or how the association ended. A data set is then read with `PDataInputBuffer`, and
    /// must be, to its end, before the next command.
    Event ReceiveCommand(std::uint8_t& context, DimseCommand& command);
    /// Waits for the response to a request that was sent. A response to something else is answered with A-ABORT.
    Event ReceiveResponse(const DimseCommand& request, DimseCommand& response);
    /// C-ECHO (PS3.7 9.1.5) on an agreed context of Verification; `Message` when the answer came.
    Event Echo(std::uint16_t& status);
    /// A number for the next request.
    std::uint16_t NextMessageId() { return ++m_MessageId; }

    /// The implementation class UID and version name that the toolkit gives to peers and writes into files (PS3.7
    /// D.3.3.2), and its default transfer syntax.
    static std::string_view GetImplementationClass() { return kImplementationClassUid; }
    static std::string_view GetImplementationVersion() { return kImplementationVersionName; }
    std::string_view GetTransferSyntax() const { return AAssociateRQ::m_TransferSyntax.Get(); }

private:
    friend class PDataInputBuffer;
    friend class PDataOutputBuffer;

    void Begin(State state);
    Event Ask();
    Event ReadAnswer();
    Event NextPdu(std::uint8_t& type);
    Event NextPdv(std::uint8_t context, std::uint8_t kind);
    Event Unexpected(std::uint8_t type);
    Event Answer(const AcceptPolicy& policy);
    Event AnswerRelease();
    Event Reject(std::uint8_t result, std::uint8_t source, std::uint8_t reason);
    Event ReadFailed();
    Event SendFailed();
    Event BreakOff(std::uint8_t reason, const std::string& what);
    Event End(Event event, const std::string& what);
    bool TakeAnswer();
    bool TakeSendLength(std::uint32_t peerLength);
    void SendAbort(std::uint8_t source, std::uint8_t reason);
    void AwaitClose();

    State m_State = State::Idle;
    std::string m_Error;
    std::vector<AcceptedContext> m_Agreed;
    std::vector<unsigned char> m_SendBlock;
    int m_Artim = kDefaultArtim;
    std::uint32_t m_OwnLength = kDefaultLength;
    std::uint32_t m_SendLength = 0;
    std::uint16_t m_MessageId = 0;
    bool m_bRequestor = false;
};
