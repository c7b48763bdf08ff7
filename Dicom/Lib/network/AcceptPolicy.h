// What an acceptor of associations takes.
#pragma once

#include "AssociatePDU.h"
#include "DimseCommand.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// Whom an acceptor takes, and what. Empty functions and texts take the default in brackets.
struct AcceptPolicy {
    std::string aeTitle;                                  ///< called title that is asked for [any]
    std::vector<std::string> callingTitles;               ///< titles that may call [all]
    std::function<bool(std::string_view)> acceptsClass;   ///< SOP classes [`IsStorageOrVerification`]
    std::function<bool(std::string_view)> acceptsSyntax;  ///< transfer syntaxes [`IsStorableSyntax`]

    // A result other than 0: every request is rejected so, for instance while the disk is full.
    std::uint8_t rejectResult = 0;
    std::uint8_t rejectSource = kRejectProviderPresentation;
    std::uint8_t rejectReason = kRejectPresentationCongestion;

    /// The answer to one context: of its transfer syntaxes the first that is accepted.
    AnsweredContext Negotiate(const ProposedContext& proposed) const;
};

/// Verification, the storage classes of the standard, and whatever is not the standard's (private classes are stored too).
bool IsStorageOrVerification(std::string_view sopClass);
/// The uncompressed syntaxes and those with encapsulated pixel data: all of the standard's for files but the deflated ones.
bool IsStorableSyntax(std::string_view transferSyntax);
