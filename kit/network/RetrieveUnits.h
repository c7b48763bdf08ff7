// The single requests that a retrieval consists of.
#pragma once

#include "../core/Watch.h"
#include "QueryUser.h"
#include "Retrieve.h"

#include <cstddef>
#include <string>
#include <vector>

namespace korvane {

/// One request of a retrieval: an entity, named by its unique keys.
struct RetrieveUnit {
    DataSet identifier;
    std::string name;                  ///< for messages
    std::vector<std::string> classes;  ///< SOP classes of its instances
    std::size_t instances = 0;         ///< 0: not known
    std::vector<std::string> uids;     ///< of the instances, as far as they are known
};

/// Throws `Error` of kind `WrongArgument` where no key has a value: that would fetch the whole archive.
void CheckRetrieveKeys(const RetrieveOptions& options);

/// The entities of the level that was asked for. Queries the peer unless the given unique keys name each of them.
std::vector<RetrieveUnit> FindUnits(const Peer& peer, const RetrieveOptions& options);

/// The series that hold what was asked for, with their SOP classes; single instances where those were asked for.
std::vector<RetrieveUnit> FindUnitsWithClasses(const Peer& peer, const RetrieveOptions& options);

/// Takes the final response to a request for a unit into a report.
void NoteEnd(RetrieveReport& report, const RetrieveUnit& unit, const DimseCommand& response, const DataSet& failed);

}  // namespace korvane
