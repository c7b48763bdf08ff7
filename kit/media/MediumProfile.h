// Application profiles of general-purpose media (PS3.11 D, H, J).
#pragma once

#include "DirectoryTree.h"

#include <string>
#include <string_view>
#include <vector>

namespace korvane {

class MediumProfile {
public:
    /// By a name of `GetMediumProfiles`; "" for none, which allows everything. Throws `Error` of kind `WrongArgument`.
    explicit MediumProfile(const std::string& name);

    bool IsNamed() const { return !m_Name.empty(); }
    const std::string& GetName() const { return m_Name; }
    bool Allows(std::string_view transferSyntax) const;

    /// Why a file with this header, whose values the directory repeats, cannot be named in a directory of the profile; "" when
    /// it can. PS3.3 F.5 asks for values that files may lack.
    std::string FaultOf(const DICOMObject& dataSet) const;

    /// Makes the directory, which the module's builder has written as its hosts need it, one of the profile: types of elements,
    /// padding of UIDs and kinds of records are the standard's; numbers that a file lacks are the record's place in its parent.
    void Apply(DirectoryTree& tree) const;

private:
    std::string m_Name;
    std::vector<std::string_view> m_Compressed;  // transfer syntaxes beside explicit VR little endian
};

}  // namespace korvane
