// What the Kit's reader forgives.
#pragma once

namespace korvane {

/// Each is on; what was forgiven is told as a `Finding` of the kind in brackets. Switched off, such data counts as
/// damaged, or (`otherEncoding`, `unknownSyntax`) is read as its transfer syntax says.
struct Leniency {
    bool otherEncoding = true;  ///< the data's encoding is not what (0002,0010) says (OtherEncoding)
    bool unknownSyntax = true;  ///< a transfer syntax that nobody knows: read as the data looks (OtherEncoding)
    bool mixedEncoding = true;  ///< implicit items or elements inside explicit ones, and the reverse (MixedEncoding)
    bool missingEnds = true;    ///< sequences and items that do not end where they should (WrongLengths)
    bool trailingBytes = true;  ///< bytes behind the data set that are no elements (TrailingBytes)
    bool unnamedTypes =
        true;               ///< UN, and private elements without a type: read as the dictionaries know them (not told)
    bool cutValues = true;  ///< the last value ends early: what is there is kept (EndsEarly)
};

}  // namespace korvane
