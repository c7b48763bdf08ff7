// What WADO-RS answers: several bodies in one, metadata, single frames.
#pragma once

#include "../core/Error.h"
#include "Multipart.h"
#include "Retrieve.h"
#include "WebService.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace korvane {

/// An answer with another status than 2xx.
class Refused : public Error {
public:
    Refused(const std::string& sentence, WebOutcome answered)
        : Error(ErrorKind::Refused, sentence), outcome(std::move(answered)) {}
    WebOutcome outcome;
};

/// Fetches a multipart body whose parts are of a type, in whatever transfer syntax they are stored, once. Throws `Refused`,
/// `ConnectionLost` also for an answer that was cut off, `Error`, and what the taker throws.
HttpAnswer FetchMultipart(WebService& service, const std::string& address, const std::string& type,
                          MultipartTaker& taker);

/// Files of metadata and of frames, whole or not at all.
class WebPartFiles {
public:
    WebPartFiles(WebService& service, const RetrieveOptions& options) : m_Service(service), m_Options(options) {}

    /// Writes the metadata of all instances below an address that are wanted, one file for each; `note` is called for
    /// each with its UID and path. Throws `Error`.
    void FetchMetadata(const std::string& address, const std::set<std::string>& wanted,
                       const std::function<void(const std::string&, const std::vector<std::string>&)>& note) const;

    /// Writes the frames of an instance, and returns their paths. Throws `Error`.
    std::vector<std::string> FetchFrames(const std::string& address, const std::string& uid) const;

private:
    std::string Write(const std::string& name, const std::string& bytes) const;

    WebService& m_Service;
    const RetrieveOptions& m_Options;
};

}  // namespace korvane
