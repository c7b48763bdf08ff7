// Files from storage users.
#pragma once

#include <Korvane/Dicom.h>

#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

struct ReceiveOptions {
    std::uint16_t port = 0;  ///< 0: the system chooses
    std::string folder;
    bool loopbackOnly = false;
    bool replace = false;              ///< files of the same SOP Instance UID; else both are kept
    std::size_t count = 0;             ///< associations to serve; 0: until Ctrl-C
    std::string ownTitle;              ///< asked for in requests; empty: any
    std::vector<std::string> callers;  ///< titles that may call; none: all
    int requestTimeout = 30;           ///< seconds until a peer that has connected must have asked for an association
    int timeout = 300;                 ///< seconds that a peer may be silent later
};

/// Told what happens, as it does.
class ReceiveObserver {
public:
    struct Association {
        std::string address;
        std::string caller;  ///< title; empty where none was said
        DcmService::Event end = DcmService::Event::Closed;
        std::string error;  ///< empty when it was released
        std::size_t stored = 0;
        std::size_t refused = 0;
    };

    virtual ~ReceiveObserver() = default;
    /// Several times a second while nothing happens; may take so long. False ends the work. Throws nothing.
    virtual bool OnLook(int milliseconds) = 0;
    virtual void OnListening(std::uint16_t port) = 0;
    /// A data set was stored as `path`; or was not, and `why` says why.
    virtual void OnFile(const StorageRequest& request, const std::string& path, std::uint16_t status,
                        const std::string& why) = 0;
    /// One is over, or was never agreed on.
    virtual void OnEnd(const Association& association) = 0;
};

struct ReceiveReport {
    std::size_t associations = 0;
    std::size_t stored = 0;
    std::size_t refused = 0;
    std::size_t broken = 0;  ///< associations that ended otherwise than by release
};

/// Serves one association after the other. Between two of them, Ctrl-C ends it as a count does. Throws `HostError` when
/// the port or the folder cannot be had, `Interrupted` when Ctrl-C broke an association off.
ReceiveReport ReceiveFiles(const ReceiveOptions& options, ReceiveObserver& observer);

}  // namespace korvane
