#include "AcceptPolicy.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr std::string_view kDicomRoot = "1.2.840.10008.";

// Storage classes whose UIDs do not begin as nearly all of them do (PS3.4 annexes B and GG).
constexpr std::string_view kOtherStorage[] = {
    "1.2.840.10008.5.1.1.27",   "1.2.840.10008.5.1.1.29",    "1.2.840.10008.5.1.1.30",   "1.2.840.10008.5.1.4.34.1",
    "1.2.840.10008.5.1.4.34.7", "1.2.840.10008.5.1.4.34.10", "1.2.840.10008.5.1.4.38.1", "1.2.840.10008.5.1.4.39.1",
    "1.2.840.10008.5.1.4.43.1", "1.2.840.10008.5.1.4.44.1",  "1.2.840.10008.5.1.4.45.1"};

// Beginnings of the UIDs of transfer syntaxes whose elements cannot be followed while they arrive: deflated data sets,
// with pixel data inside or elsewhere, and encodings that are not for files (MIME, XML, real-time streams).
constexpr std::string_view kUnseen[] = {kDeflatedUid, "1.2.840.10008.1.2.4.95", "1.2.840.10008.1.2.4.205",
                                        "1.2.840.10008.1.2.6.", "1.2.840.10008.1.2.7."};

}  // namespace

bool IsStorageOrVerification(std::string_view sopClass) {
    if (sopClass == kVerificationClass || sopClass.starts_with("1.2.840.10008.5.1.4.1.1.")) return true;
    if (!sopClass.starts_with(kDicomRoot)) return !sopClass.empty();
    return std::find(std::begin(kOtherStorage), std::end(kOtherStorage), sopClass) != std::end(kOtherStorage);
}

bool IsStorableSyntax(std::string_view transferSyntax) {
    const bool isStandard =
        transferSyntax == kImplicitLittleEndianUid || transferSyntax.starts_with("1.2.840.10008.1.2.");
    return isStandard && std::none_of(std::begin(kUnseen), std::end(kUnseen),
                                      [&](std::string_view begin) { return transferSyntax.starts_with(begin); });
}

AnsweredContext AcceptPolicy::Negotiate(const ProposedContext& proposed) const {
    AnsweredContext answer;
    answer.id = proposed.id;
    // The item has a transfer syntax even where it rejects the context (PS3.8 9.3.3.2).
    if (!proposed.transferSyntaxes.empty()) answer.transferSyntax = proposed.transferSyntaxes.front();
    const std::string_view sopClass = proposed.abstractSyntax.Get();
    if (!(acceptsClass ? acceptsClass(sopClass) : IsStorageOrVerification(sopClass))) {
        answer.result = kContextAbstractSyntaxNotSupported;
        return answer;
    }
    const auto accepts = [&](const UidField& syntax) {
        return acceptsSyntax ? acceptsSyntax(syntax.Get()) : IsStorableSyntax(syntax.Get());
    };
    const auto& syntaxes = proposed.transferSyntaxes;
    const auto chosen = std::find_if(syntaxes.begin(), syntaxes.end(), accepts);
    answer.result = chosen != syntaxes.end() ? kContextAccepted : kContextTransferSyntaxesNotSupported;
    if (chosen != syntaxes.end()) answer.transferSyntax = *chosen;
    return answer;
}
