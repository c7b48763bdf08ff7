// Names of outputs, from a pattern and what a series says about itself.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

class Series;

/// Text with fields: %s series number, %d description, %p protocol, %e echo number, %m modality, %t study date, %n name and
/// %i ID of the patient, %u UID of the series. Slashes in the pattern make folders; what fields bring
/// goes through `MakeSafeName`.
class NamePattern {
public:
    /// Throws `Error` of kind `WrongArgument` for a field that does not exist, or a part that is "." or "..".
    explicit NamePattern(std::string pattern);

    /// Never "". Says nothing that the pattern does not ask for.
    std::string MakeName(const Series& series) const;

private:
    std::string m_Pattern;
};

/// The names that a job has given away. Those that differ in case alone count as the same: on some systems they are.
class NamesTaken {
public:
    /// The name, or one like it with letters behind (a, b, ... z, aa), such that neither it nor it with any of the suffixes
    /// is taken yet; then they are.
    std::string Take(const std::string& name, const std::vector<std::string>& suffixes);

private:
    std::set<std::string> m_Names;
};

}  // namespace korvane
