// Texts of unknown origin on their way to a terminal or into JSON.
#pragma once

#include "Visible.h"

#include <string>
#include <string_view>

namespace korvane {

/// Turns values of a data set into UTF-8 by its Specific Character Set (0008,0005), PS3.3 C.12.1.1.2.
///
/// ASCII, Latin-1 (ISO_IR 100) and UTF-8 (ISO_IR 192) are converted. Of any other set, and of bytes that their own set
/// does not have, ASCII stays and each other byte becomes \xNN, so that nothing is lost.
class TextDecoder {
public:
    /// The value of (0008,0005); "" without one.
    explicit TextDecoder(std::string_view characterSet = {});

    std::string ToUtf8(std::string_view bytes) const;

    /// Whether everything that the set has is converted.
    bool IsKnown() const { return m_bKnown; }

private:
    enum class Set { Ascii, Latin1, Utf8 };
    Set m_Set = Set::Ascii;
    bool m_bKnown = false;
};

}  // namespace korvane
