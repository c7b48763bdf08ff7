// How a query goes down the levels of an archive, whatever way its requests take.
#pragma once

#include "../core/Watch.h"
#include "Query.h"

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace korvane {

/// Keywords of the unique keys (PS3.4 C.6.1.1), by level.
inline constexpr std::array<const char*, 4> kUniqueKeys = {"PatientID", "StudyInstanceUID", "SeriesInstanceUID",
                                                           "SOPInstanceUID"};

/// Bytes of answers that a query takes in all.
inline constexpr std::size_t kMostQueryBytes = std::size_t{512} << 20;

/// Whether a value names exactly one thing: no wildcard, no list.
bool IsSingleValue(const std::string& value);

/// A query at one level, and at the levels above whose unique keys it does not give.
class QueryJob {
public:
    /// Both must outlive the object.
    QueryJob(const Peer& peer, const QueryOptions& options);
    virtual ~QueryJob() = default;
    QueryJob(const QueryJob&) = delete;
    QueryJob& operator=(const QueryJob&) = delete;

    QueryReport Run();

protected:
    using Unique = std::array<std::string, kUniqueKeys.size()>;

    virtual void Begin() = 0;
    virtual void End() = 0;
    /// All answers of a level, below the entities of `above`; with those that are there already no more than the limit,
    /// where it is the target's.
    virtual std::vector<DataSet> Ask(int level, const Unique& above) = 0;

    int GetTarget() const { return static_cast<int>(m_Options.level); }
    /// Whether another answer of a level would be more than is wanted, with so many that came of the same request.
    bool IsEnough(int level, std::size_t more) const;
    /// The level that a key belongs to.
    int LevelOf(const ElementPath& path) const;
    /// What is asked for at a level beside the caller's keys.
    std::vector<std::string> UsualKeys(int level) const;

    const Peer& m_Peer;
    const QueryOptions& m_Options;
    Watch m_Watch;
    std::size_t m_Bytes = 0;  // bytes of all answers together
    QueryReport m_Report;

private:
    void Descend(int level, Unique& above, const DataSet* upper);
    bool IsAskedAt(int level) const;
    void Complete(DataSet& match, const Unique& above, const DataSet* upper) const;

    int m_Top;  // the highest level of the query model
};

}  // namespace korvane
