// Receives data sets and answers verification (PS3.4 annexes A and B).
#pragma once

#include "DcmService.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

class DataSetWalker;
class PDataInputBuffer;

/// Whether a text is a UID (PS3.5 9.1) from which a file name may be made: 1 to 64 characters, digits and dots, no
/// empty component.
bool IsUid(std::string_view text);

/// A data set that is about to arrive. Class and instance have been checked to be UIDs; after
/// `SetTakesAnyInstance(true)` the instance may be any text that is not empty.
struct StorageRequest {
    std::string sopClass;
    std::string sopInstance;
    std::string transferSyntax;
    std::string callingTitle;
};

/// The status for a data set whose structure was followed to its end: success; 0xC000 when it is damaged or cut off;
/// 0xA900 when its class or instance is not what the command said.
std::uint16_t CheckDataSet(const DataSetWalker& walked, const StorageRequest& request);

/// Where received data sets go. For each: `Begin`, any number of `Write`, then `End` or `Discard`. Statuses are those
/// of `DimseStatus`. Any but success is answered to the peer; the sink then keeps nothing of the data set.
class StorageSink {
public:
    virtual ~StorageSink() = default;
    virtual std::uint16_t Begin(const StorageRequest& request) = 0;
    /// A piece of the data set as encoded by the peer. After a failure only `Discard` is called.
    virtual std::uint16_t Write(const void* bytes, std::size_t count) = 0;
    virtual std::uint16_t End() = 0;
    virtual void Discard() = 0;
    /// Told last: what was answered for a data set, and why ("" for success).
    virtual void Answered(const StorageRequest& /*request*/, std::uint16_t /*status*/, const std::string& /*reason*/) {}
};

/// Answers one command. Returns `Message`, or how the association ended.
using CommandHandler = std::function<DcmService::Event(std::uint8_t context, const DimseCommand& command)>;

/// Accepts an association and gives `handle` each command, until it ends. Returns how.
DcmService::Event ServeAssociation(DcmService& service, const AcceptPolicy& policy, const CommandHandler& handle);

/// Storage and verification as provider: serves one association after the other, on the caller's thread.
///
/// A data set is passed on as it comes. On the way its structure is checked: it must be whole, and have the class and
/// instance that the command named (`CheckDataSet`); else it is discarded. A deflated one (1.2.840.10008.1.2.1.99) is
/// not checked here: where the policy accepts that syntax, the sink must check it.
class StorageProvider {
public:
    StorageProvider(DcmService& service, StorageSink& sink) : m_Service(service), m_Sink(sink) {}

    /// Data sets whose instance is named by a text that is no UID are passed on all the same, where the sink can give
    /// them a name; else they are refused (0x0117).
    void SetTakesAnyInstance(bool takes) { m_bAnyInstance = takes; }

    /// Serves the connection of the service's socket until the association has ended, and returns how it ended.
    DcmService::Event Serve(const AcceptPolicy& policy);

    /// Answers one C-STORE or C-ECHO request that the caller has received, as during a C-GET. Returns `Message`, or how
    /// the association ended.
    DcmService::Event Handle(std::uint8_t context, const DimseCommand& command);

private:
    DcmService::Event Store(const AcceptedContext& context, const DimseCommand& command);
    std::uint16_t Receive(PDataInputBuffer& data, const StorageRequest& request);
    DcmService::Event Answer(std::uint8_t context, const DimseCommand& command, std::uint16_t status,
                             const std::string& reason);

    DcmService& m_Service;
    StorageSink& m_Sink;
    std::vector<unsigned char> m_Piece;
    bool m_bAnyInstance = false;
};
