// One association of the receiver: storage, verification, and storage commitment as provider (PS3.4 J.3).
#pragma once

#include "CommitmentReporter.h"

#include "Dicom/Lib/network/StorageProvider.h"

#include <deque>
#include <functional>
#include <string>

namespace korvane {

/// Serves an association. What it could not report at its end goes to the reporter.
class ReceiveSession {
public:
    using TakeReport = std::function<bool(const CommitmentNews&)>;

    /// `reporter` may be null: then nothing is committed. All must outlive the object.
    ReceiveSession(DcmService& service, StorageProvider& storage, CommitmentReporter* reporter, TakeReport takeReport)
        : m_Service(service), m_Storage(storage), m_pReporter(reporter), m_TakeReport(std::move(takeReport)) {}
    ~ReceiveSession();
    ReceiveSession(const ReceiveSession&) = delete;
    ReceiveSession& operator=(const ReceiveSession&) = delete;

    DcmService::Event Serve(const AcceptPolicy& policy);

private:
    DcmService::Event Handle(std::uint8_t context, const DimseCommand& command);
    DcmService::Event TakeRequest(std::uint8_t context, const DimseCommand& command);
    DcmService::Event TakeNews(std::uint8_t context, const DimseCommand& command);
    DcmService::Event TakeAnswer(std::uint8_t context, const DimseCommand& command);
    std::uint16_t Keep(const AcceptedContext& context, const DimseCommand& command, const CommitmentData* request);
    DcmService::Event Report();
    DcmService::Event Answer(std::uint8_t context, const DimseCommand& command, std::uint16_t status);

    DcmService& m_Service;
    StorageProvider& m_Storage;
    CommitmentReporter* m_pReporter;
    TakeReport m_TakeReport;
    std::deque<std::string> m_Waiting;  // transactions to be reported
    CommitmentData m_Report;            // that was sent, and has no answer yet
    DimseCommand m_Sent;                // the command of it
    bool m_bSent = false;
};

}  // namespace korvane
