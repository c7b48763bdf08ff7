// Peers for the network tests: sockets, servers and PDUs as bytes.
#pragma once

#include "DataSetBytes.h"

#include <filesystem>
#include <string>
#include <thread>

template <class Pdu>
Bytes PduBytes(Pdu pdu) {
    MemoryOutputBuffer out;
    pdu.WritePDU(out);
    return out.GetBytes();
}

/// Reads a PDU from bytes that begin with its type. Further bytes may follow it.
template <class Pdu>
int ReadFrom(Pdu& pdu, const Bytes& bytes) {
    MemoryInputBuffer in(bytes.data() + 1, bytes.size() - 1);
    return pdu.ReadPDU(in, bytes[0]);
}

/// The text that goes to the dump log while `work` runs.
template <class Work>
std::string Traced(std::uint32_t bits, Work work) {
    const std::string name = "korvane-trace-" + std::to_string(bits) + ".log";  // tests run side by side
    const std::string log = (std::filesystem::temp_directory_path() / name).string();
    std::filesystem::remove(log);
    SetDumpLogPath(log);
    SetDebugFlag(bits, true);
    work();
    SetDebugFlag(0xFFFFFFFF, false);
    SetDumpLogPath("");
    const std::string text = ReadText(log);
    std::filesystem::remove(log);
    return text;
}

inline Bytes DataPdu(std::uint8_t context, std::uint8_t control, const Bytes& data) {
    MemoryOutputBuffer out;
    PDataTF().WritePDU(out, context, control, data.data(), static_cast<std::uint32_t>(data.size()));
    return out.GetBytes();
}

inline constexpr char kCtClass[] = "1.2.840.10008.5.1.4.1.1.2";

inline AAssociateRQ Request() {
    AAssociateRQ request;
    request.m_CalledAETitle = "ARCHIVE";
    request.m_CallingAETitle = "TESTER";
    request.m_UserInformation.maximumLength = 16384;
    request.Propose(kVerificationClass);
    request.Propose(kCtClass, {std::string(kExplicitLittleEndianUid)});
    return request;
}

inline AAssociateAC Acceptance(std::uint32_t maximumLength = 16384) {
    AAssociateAC answer;
    answer.m_UserInformation.maximumLength = maximumLength;
    answer.m_Contexts = {{1, 0, kImplicitLittleEndianUid}, {3, 0, kExplicitLittleEndianUid}};
    return answer;
}

inline Bytes EchoCommand() {
    DimseCommand echo;
    echo.field = kEchoRQ;
    echo.messageId = 7;
    echo.sopClass = kVerificationClass;
    return echo.Encode();
}

inline DimseCommand StoreCommand(const std::string& instance = "1.2.3") {
    DimseCommand store;
    store.field = kStoreRQ;
    store.messageId = 8;
    store.sopClass = kCtClass;
    store.sopInstance = instance;
    store.dataSetType = 1;
    return store;
}

/// A data set in explicit little endian, with class and instance.
inline Bytes SmallSet(const std::string& instance = "1.2.3", const std::string& sopClass = kCtClass) {
    return Join({le.Short(0x0008, 0x0016, "UI", sopClass + std::string(sopClass.size() % 2, '\0')),
                 le.Short(0x0008, 0x0018, "UI", instance + std::string(instance.size() % 2, '\0')),
                 le.Short(0x0010, 0x0010, "PN", "Doe^Jane")});
}

inline void SendBytes(DcmSocket& socket, const Bytes& bytes) {
    socket.Send(bytes.data(), static_cast<int>(bytes.size()));
}

/// Receives until the peer closes the connection, or sends nothing for two seconds.
inline Bytes ReceiveAll(DcmSocket& socket) {
    Bytes all;
    unsigned char piece[4096];
    socket.SetTimeout(2);
    for (int got; (got = socket.Recv(piece, sizeof piece)) > 0;) all.insert(all.end(), piece, piece + got);
    return all;
}

/// Two ends of one connection.
inline bool ConnectPair(DcmSocket& server, DcmSocket& client) {
    DcmSocket listener;
    return listener.Listen(0, true) != 0 &&
           client.Open("127.0.0.1", std::to_string(listener.GetListeningPort()).c_str()) != 0 &&
           listener.Accept(server, 2000) != 0;
}

/// A server on a thread of its own, which takes one connection and calls `serve` with it. The sockets are made before
/// the thread starts, so that a client can connect at once.
class Server {
public:
    template <class Serve>
    explicit Server(Serve serve) {
        m_Listener.Listen(0, true);
        m_Service.GetSocket();
        m_Thread = std::thread([this, serve] {
            if (m_Listener.Accept(m_Service.GetSocket(), 5000) != 0) serve(m_Service);
            m_Service.GetSocket().Close();
        });
    }
    ~Server() { Join(); }
    void Join() {
        if (m_Thread.joinable()) m_Thread.join();
    }
    std::string GetPort() const { return std::to_string(m_Listener.GetListeningPort()); }

private:
    DcmSocket m_Listener;
    DcmService m_Service;
    std::thread m_Thread;
};
