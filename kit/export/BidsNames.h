// Where series go in a BIDS tree, and what they are called there.
#pragma once

#include "ScanFacts.h"

#include <array>
#include <map>
#include <string>
#include <vector>

namespace korvane {

class Found;
class Series;

/// What a series is in the terms of BIDS. Only what its elements and names say clearly counts.
struct BidsPlace {
    std::string type{};      ///< "anat", "func", "dwi", "fmap"; "" where nothing is clear: `why`
    std::string suffix{};    ///< "T1w", "bold" ...
    std::string entities{};  ///< "_task-rest_dir-AP_run-2"
    std::string why{};
    SidecarExtras extras{};
};

/// Names below the root of a tree for one subject. What is not clear goes under sourcedata/, with the name that it has
/// elsewhere.
class BidsNames {
public:
    /// Throws `Error` of kind `WrongArgument` for labels that are none; `session` may be empty.
    BidsNames(const std::string& subject, const std::string& session);

    /// One for each series of the list. Those that would have one name are runs, in the order of the list.
    std::vector<BidsPlace> FindPlaces(const Found& found) const;

    /// Of one volume file of a series, without extension. `ending`: what tells it from the others of its series, as
    /// `GroupVolumes` says; `plain`: the series' name elsewhere.
    std::string NameOf(const BidsPlace& place, const std::string& ending, const std::string& plain) const;

    /// The text of dataset_description.json.
    static std::string DescribeDataset();

private:
    std::string m_Folder;  // "sub-01/ses-1"
    std::string m_Stem;    // "sub-01_ses-1"
};

}  // namespace korvane
