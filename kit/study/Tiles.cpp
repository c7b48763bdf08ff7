#include "Tiles.h"

#include "../vendors/VendorFacts.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace korvane {

void TakeTiles(const DICOMDataObject& dataSet, ImageHeader& header) {
    PixelForm& form = header.form;
    if (header.frames != 1 || form.kind != PixelForm::Kind::Integer || form.samples != 1 || form.allocated % 8 != 0)
        return;
    const TileFacts tiles = ReadTiles(dataSet);
    if (tiles.count == 0 || form.columns < tiles.columns || form.rows < tiles.rows ||
        form.columns % tiles.columns != 0 || form.rows % tiles.rows != 0) {
        header.tilesUnread = FindText(dataSet, tags::ImageType).find("MOSAIC") != std::string::npos;
        return;
    }
    form.columns /= tiles.columns;
    form.rows /= tiles.rows;
    header.frames = tiles.count;
    header.tileColumns = tiles.columns;
    header.tileRows = tiles.rows;
    // The position of the whole image, a corner of all tiles together, is that of none of the slices.
    FramePlace place = header.places.Get(0);
    place.hasPosition = !tiles.positions.empty();
    header.places = FramePlaces(place, std::max<std::size_t>(tiles.positions.size(), 1));
    for (std::size_t i = 0; i < tiles.positions.size(); ++i) header.places.SetPosition(i, tiles.positions[i]);
    header.framesPlaced = !tiles.positions.empty();
}

void PutTileSize(const ImageHeader& header, DICOMDataObject& dataSet) {
    PutNumber(dataSet, tags::Rows, static_cast<unsigned>(header.form.rows));
    PutNumber(dataSet, tags::Columns, static_cast<unsigned>(header.form.columns));
}

void Untile(const ImageHeader& header, DICOMDataObject& dataSet) {
    VR& pixels = *FindElement(dataSet, tags::PixelData);
    const auto line = static_cast<std::size_t>(header.form.FrameBytes() / static_cast<std::uint64_t>(header.form.rows));
    const auto rows = static_cast<std::size_t>(header.form.rows);
    const auto across = static_cast<std::size_t>(header.tileColumns);
    std::string frames(static_cast<std::size_t>(header.form.FrameBytes()) * static_cast<std::size_t>(header.frames),
                       '\0');
    char* to = frames.data();
    for (std::size_t tile = 0; tile < static_cast<std::size_t>(header.frames); ++tile) {
        for (std::size_t row = 0; row < rows; ++row, to += line) {
            const std::size_t lineInImage = (tile / across) * rows + row;
            std::memcpy(to, pixels.m_pData + (lineInImage * across + tile % across) * line, line);
        }
    }
    std::memcpy(pixels.m_pData, frames.data(), frames.size());
    pixels.m_Length = static_cast<std::uint32_t>(frames.size());
    PutTileSize(header, dataSet);
}

}  // namespace korvane
