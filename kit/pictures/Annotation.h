// Letters and a scale bar on a picture.
#pragma once

#include "Picture.h"

#include <string>

namespace korvane {

/// What stands on a picture; an empty text, and a pixel size of 0, leave their part out.
struct Annotation {
    std::string left;  ///< the patient directions that the edges face: letters of L R P A H F
    std::string right;
    std::string top;
    std::string bottom;
    std::string corner;    ///< upper left: digits
    double pixelSize = 0;  ///< millimetres, for a bar of a round length near a quarter of the width
};

/// White with a black outline, so that it shows on any ground. Small pictures lack what has no room.
void Annotate(Picture& picture, const Annotation& annotation);

}  // namespace korvane
