// The CSA headers of Siemens scanners: named values in a private element's bytes.
#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace korvane {

/// Both layouts: the later one begins with "SV10". What is cut short or claims more than there is ends the reading; what
/// came before it counts.
class CsaHeader {
public:
    CsaHeader() = default;
    explicit CsaHeader(std::span<const unsigned char> bytes);

    /// The values under a name, without blanks at their ends; empty ones are left out.
    const std::vector<std::string>& Texts(const std::string& name) const;
    /// As numbers; none where one of them is none.
    std::vector<double> Numbers(const std::string& name) const;
    bool IsEmpty() const { return m_Values.empty(); }

private:
    std::map<std::string, std::vector<std::string>> m_Values;
};

}  // namespace korvane
