// The system's own conversion of texts, beneath TextConversion.h.
#pragma once

#include "TextConversion.h"

#include <memory>
#include <string>
#include <string_view>

namespace platform {

/// Converts from one code to UTF-8. Codes of pairs (see `TextCode`) are in the system's extended code here: both bytes in
/// the upper half.
class SystemText {
public:
    virtual ~SystemText() = default;

    /// All or nothing.
    virtual bool AppendUtf8(std::string_view text, std::string& out) = 0;
};

std::unique_ptr<SystemText> MakeSystemText(TextCode code);

/// From UTF-8: all or nothing, and nothing that merely looks like a character which the code lacks.
bool AppendInCode(TextCode code, std::string_view utf8, std::string& out);

/// Whether the system marks a character of JIS X 0212 by a byte 8F in front; else its second byte is in the lower half.
bool MarksJisX0212();

}  // namespace platform
