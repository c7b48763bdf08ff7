// Which element of a data set is meant.
#pragma once

#include "../../Dicom/Lib/dataset/Tag.h"
#include "../core/KitExport.h"

#include <cstddef>
#include <string>
#include <vector>

namespace korvane {

/// A tag, a keyword of the standard (PS3.6), or a way through sequences: "PatientName", "0010,0010", "(0010,0010)",
/// "00100010", "ReferencedSeriesSequence[0].SeriesInstanceUID". Items count from 0.
class KORVANE_KIT ElementPath {
public:
    struct Step {
        tags::Tag tag{};
        std::size_t item = 0;  ///< for all but the last
    };

    ElementPath(tags::Tag tag);            // NOLINT(google-explicit-constructor): a tag is a path
    ElementPath(const char* text);         // NOLINT(google-explicit-constructor): so is a keyword
    ElementPath(const std::string& text);  // NOLINT(google-explicit-constructor)

    const std::vector<Step>& GetSteps() const { return m_Steps; }
    tags::Tag GetTag() const { return m_Steps.back().tag; }
    /// As it was given.
    const std::string& GetText() const { return m_Text; }

private:
    std::vector<Step> m_Steps;
    std::string m_Text;
};

}  // namespace korvane
