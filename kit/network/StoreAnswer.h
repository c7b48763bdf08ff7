// Answers to requests for storage (STOW-RS, PS3.18 10.5.3).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

/// What an answer to a request for storage (PS3.18 I.2.2) says of an instance.
struct StoreVerdict {
    enum class Kind { Stored, Warned, Failed, Unnamed } kind = Kind::Unnamed;
    std::uint16_t reason = 0;  ///< (0008,1196) or (0008,1197), where the answer has one
};

/// Reads an answer in the DICOM JSON model: a verdict for each instance that was sent, in their order. An instance that is
/// named both as stored and as failed has failed. Throws `Error` for a text that is none.
std::vector<StoreVerdict> ReadStoreAnswer(std::string_view json, const std::vector<std::string>& instances);

}  // namespace korvane
