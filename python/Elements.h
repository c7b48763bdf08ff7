// A data set as Python has it.
#pragma once

#include <Korvane/Kit.h>

#include <memory>
#include <string>

/// A data set, or an item of one of its sequences. An item is the whole data set and the path of the item, which is put in
/// front of each path and looked up again at each access, so that no pointer dangles when the data set changes.
struct Elements {
    std::shared_ptr<korvane::DataSet> set;
    std::string way;  ///< "" or "Sequence[0]."

    std::string To(const std::string& path) const { return way + path; }
};
