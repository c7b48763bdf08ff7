// What a derived series takes of the one that it was made of.
#pragma once

#include "../dataset/DataSet.h"
#include "../study/Series.h"
#include "../study/Volume.h"

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace korvane {

class SourceImages {
public:
    explicit SourceImages(const Series& series);

    const std::string& GetSopClass() const;
    const std::string& GetUnit() const;  ///< of real values, of the first image
    /// The image that lies where a plane does, alone there; nothing where none does, or several do and none is of that time.
    std::optional<std::size_t> FindAt(const Volume::Vector& position, const std::array<double, 6>& orientation,
                                      std::size_t time) const;

    /// The elements of an image's file that hold for what is derived of it too: patient, study, frame of reference, how it
    /// was acquired. `image`: nothing for those that hold for the series, without times and the like of single images.
    DataSet MakeTemplate(std::optional<std::size_t> image) const;
    /// Names the image, or all of them, as what the data set was made of.
    void PutReferences(DataSet& dataSet, std::optional<std::size_t> image) const;

private:
    struct Image {
        std::size_t file;
        int frame;
        std::size_t time;
        Volume::Vector position;
    };

    void PutInstance(DataSet& dataSet, const Image& image, const std::string& item) const;
    void PutSource(DataSet& dataSet, const Image& image, const std::string& item, bool samePlace) const;

    double HeightOf(const Volume::Vector& position) const;

    Series m_Series;
    std::vector<Image> m_Images;
    Volume::Vector m_Normal{};                      // of the first image
    std::multimap<double, std::size_t> m_ByHeight;  // along it, of images with a place
};

}  // namespace korvane
