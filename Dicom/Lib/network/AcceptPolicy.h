// Which associations an acceptor accepts (PS3.8 7.1).
#pragma once

#include "AssociatePDU.h"
#include "DimseCommand.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// Which requestors, SOP classes and transfer syntaxes an acceptor accepts. The default in brackets holds where a text,
/// list or function is empty.
struct AcceptPolicy {
    std::string aeTitle;                                  ///< the called AE title must be this one [any]
    std::vector<std::string> callingTitles;               ///< calling AE titles that are accepted [all]
    std::function<bool(std::string_view)> acceptsClass;   ///< SOP classes [`IsStorageOrVerification`]
    std::function<bool(std::string_view)> acceptsSyntax;  ///< transfer syntaxes [`IsStorableSyntax`]

    /// Where the result is not 0, every request is rejected with these (PS3.8 9.3.4), for instance while the disk is
    /// full.
    std::uint8_t rejectResult = 0;
    std::uint8_t rejectSource = kRejectProviderPresentation;
    std::uint8_t rejectReason = kRejectPresentationCongestion;

    /// SOP classes whose provider the requestor may be, where it proposes that (PS3.7 D.3.3.4) [none]
    std::function<bool(std::string_view)> acceptsProvider{};

    /// The answer to one proposed context. It names the first of the proposed transfer syntaxes that is accepted.
    AnsweredContext Negotiate(const ProposedContext& proposed) const;
};

/// True for Verification, for the storage classes of the standard, and for classes that are not of the standard:
/// private ones are stored too.
bool IsStorageOrVerification(std::string_view sopClass);
/// True for all transfer syntaxes of files but the deflated ones: uncompressed, and with encapsulated pixel data.
bool IsStorableSyntax(std::string_view transferSyntax);
