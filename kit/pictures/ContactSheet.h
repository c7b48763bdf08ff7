// Many pictures of one size on one.
#pragma once

#include "Picture.h"

namespace korvane {

/// Tiles by rows from the upper left, as many columns as make the sheet about square. Each is the picture made smaller
/// by a whole factor, so that its longer side has at most `kTile` pixels.
class ContactSheet {
public:
    static constexpr int kTile = 160;
    static constexpr int kGap = 2;  ///< between tiles and around them

    /// For `count` pictures of this size. Throws `Error` when the sheet would be too large.
    ContactSheet(int count, int width, int height, Picture::Kind kind = Picture::Kind::Grey);

    int GetFactor() const { return m_Factor; }
    int GetColumns() const { return m_Columns; }

    /// The next one, already smaller by that factor.
    void Add(const Picture& tile);
    const Picture& GetPicture() const { return m_Picture; }

private:
    int m_Factor;
    int m_Width;  // of a tile and a gap
    int m_Height;
    int m_Columns;
    int m_Added = 0;
    Picture m_Picture;
};

}  // namespace korvane
