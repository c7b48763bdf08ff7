// Files to a storage provider.
#pragma once

#include "PeerConnection.h"

#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

struct SendReport {
    struct File {
        std::string path;
        std::string why;
        std::uint16_t status = 0;  ///< of the provider's answer, if there was one
    };
    std::size_t stored = 0;
    std::uint64_t bytes = 0;  ///< of their data sets
    std::size_t associations = 0;
    double seconds = 0;        ///< from the first association to the end of the last
    std::vector<File> warned;  ///< stored, but the provider had something to say
    std::vector<File> failed;
    std::vector<File> leftOut;  ///< found in folders and not meant to be sent
};

/// Sends files, and all below folders, in as few associations as their SOP classes and transfer syntaxes allow. When one
/// breaks off, another is made for the files that are left, unless two in a row broke off before anything was stored.
/// Throws `HostError` when the first association does not come about or there is nothing to send, and on Ctrl-C.
SendReport SendFiles(const PeerOptions& peer, const std::vector<std::string>& sources);

}  // namespace korvane
