// Reads what the toolkit's parser refuses.
#pragma once

#include "../core/Finding.h"
#include "Leniency.h"
#include "Toolkit.h"

#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

class LeftValues;

/// Whether two letters are a value representation of the standard.
bool IsKnownType(unsigned char first, unsigned char second);

/// A second look at a stream in which the toolkit met a fault: elements are taken as they look, level by level. What no
/// leniency covers ends the parse; what was read until then stays.
class TolerantParser {
public:
    /// `left`: keeps large values out of memory; may be null.
    TolerantParser(const Leniency& leniency, std::vector<Finding>& findings, LeftValues* left = nullptr)
        : m_Leniency(leniency), m_Findings(findings), m_pLeft(left) {}

    /// `buffer` stands behind group 0002 and knows its end. `option`: see `ParseOption`. Whether all was read.
    bool Parse(int syntax, Buffer& buffer, DICOMObject& target, int option);

    bool HasStopped() const { return m_bStopped; }
    std::uint32_t GetStoppedLength() const { return m_StoppedLength; }
    /// Of (7FE0,0010) at the top: what its length field says, and what there is of it.
    bool HasPixels() const { return m_bPixels; }
    std::uint32_t GetPixelLength() const { return m_PixelLength; }
    std::uint64_t GetPixelsPresent() const { return m_PixelsPresent; }

private:
    enum class End { Data, Item, Sequence, Fault };

    struct Header : ElementHeader {
        bool isExplicit = false;
    };

    End ParseLevel(Buffer& buffer, DICOMObject& target, int depth, bool isExplicit);
    End ParseDelimiter(Buffer& buffer, const Header& header, int depth);
    End ParseElement(Buffer& buffer, DICOMObject& target, const Header& header, int depth);
    End ParseItems(Buffer& buffer, VR& sequence, int depth, bool isExplicit, bool undefined);
    End EndInside(const std::string& what);
    bool IsForgivenByOuter(const std::string& what);
    End ParseSequence(Buffer& buffer, VR& sequence, std::uint32_t length, int depth, bool isExplicit);
    bool ParseItem(Buffer& buffer, VR& sequence, std::uint32_t length, int depth, bool isExplicit, bool& ended);
    End ParseFragments(Buffer& buffer, VR& pixelData);
    End ReadValue(Buffer& buffer, VR& element, std::uint32_t length);
    bool PeekHeader(Buffer& buffer, bool isExplicit, Header& header) const;
    bool PeekExplicit(const unsigned char* head, Buffer& buffer, Header& header) const;
    bool PeekUnknownType(Buffer& buffer, Header& header) const;
    bool EndWithRest(Buffer& buffer, int depth);
    void Note(FindingKind kind, const std::string& text);

    Leniency m_Leniency;
    std::vector<Finding>& m_Findings;
    LeftValues* m_pLeft;
    int m_Option = kParseAll;
    bool m_bBig = false;
    bool m_bStopped = false;
    bool m_bCut = false;  // the data ended inside a sequence
    int m_iWindows = 0;   // parts of known length around what is read
    bool m_bPixels = false;
    bool m_bSignedPixels = false;
    std::uint32_t m_StoppedLength = 0;
    std::uint32_t m_PixelLength = 0;
    std::uint64_t m_PixelsPresent = 0;
    Tag m_LastTag{};  // at the top
};

}  // namespace korvane
