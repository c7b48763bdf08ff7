// Helpers of the series tests: data sets made element by element, and series assembled from them.
#pragma once

#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>

#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <numeric>
#include <vector>

/// A tag as one number: 0x00280010 is (0028,0010).
using Tag = std::uint32_t;

/// A data set to be made; setting an element again replaces it.
class DataSet {
public:
    DataSet& Bytes(Tag tag, const void* bytes, std::size_t count) {
        return m_Values[tag].assign(static_cast<const char*>(bytes), count), *this;
    }
    DataSet& Text(Tag tag, const std::string& text) {
        return m_Values[tag] = text + (text.size() % 2 != 0 ? " " : ""), *this;
    }
    DataSet& US(Tag tag, int value) { return Bytes(tag, &value, 2); }
    template <class Word>
    DataSet& Pixels(const std::vector<Word>& words) {
        return Bytes(0x7FE00010, words.data(), words.size() * sizeof(Word));
    }
    DataSet& Drop(Tag tag) { return m_Values.erase(tag), *this; }
    DataSet& Rescale(const char* intercept, const char* slope) {
        return Text(0x00281052, intercept).Text(0x00281053, slope);
    }
    DataSet& Colour(int samples) { return Form(8, 8, 7, false).Text(0x00280004, "RGB").US(0x00280002, samples); }
    DataSet& Form(int allocated, int stored, int highBit, bool isSigned) {
        return US(0x00280100, allocated).US(0x00280101, stored).US(0x00280102, highBit).US(0x00280103, isSigned);
    }
    DataSet& Matrix(int rows, int columns) { return US(0x00280010, rows).US(0x00280011, columns); }

    std::unique_ptr<DICOMDataObject> Make() const {
        auto made = std::make_unique<DICOMDataObject>();
        for (const auto& [tag, value] : m_Values) {
            const auto group = static_cast<std::uint16_t>(tag >> 16), element = static_cast<std::uint16_t>(tag);
            auto* const vr = new VR(group, element, static_cast<std::uint32_t>(value.size()), 1);
            if (!value.empty()) std::memcpy(vr->m_pData, value.data(), value.size());
            made->Push(vr);
        }
        return made;
    }

private:
    std::map<Tag, std::string> m_Values;
};

/// One row of unsigned 16-bit pixels, MONOCHROME2, one sample, without any geometry.
inline DataSet Image(const std::vector<std::uint16_t>& pixels = {1, 2, 3, 4}) {
    DataSet image;
    image.Matrix(1, static_cast<int>(pixels.size())).Form(16, 16, 15, false).Pixels(pixels);
    return image.Text(0x00280004, "MONOCHROME2").US(0x00280002, 1);
}

inline std::string Numbers(const std::vector<double>& values) {
    std::string text;
    for (const double value : values) text += (text.empty() ? "" : "\\") + std::to_string(value);
    return text;
}

/// An axial slice whose pixels are all `pixel`.
inline DataSet SliceAt(double z, int pixel = 0) {
    DataSet slice = Image(std::vector<std::uint16_t>(4, static_cast<std::uint16_t>(pixel)));
    return slice.Text(0x00200037, "1\\0\\0\\0\\1\\0").Text(0x00200032, Numbers({0, 0, z}));
}

/// A multi-frame object of 1 x 1 frames that hold their own number.
inline DataSet Frames(int count) {
    std::vector<std::uint16_t> pixels(static_cast<std::size_t>(count));
    std::iota(pixels.begin(), pixels.end(), std::uint16_t{0});
    return Image(pixels).Matrix(1, 1).Text(0x00280008, std::to_string(count));
}

/// A series under test: its data sets, and what assembly makes of them.
class SeriesTest : public ::testing::Test {
protected:
    CDicomVolume& Assemble(const std::vector<DataSet>& slices, std::vector<bool>* mask = nullptr) {
        m_List.clear();
        m_DataSets.clear();
        for (const DataSet& slice : slices) {
            m_DataSets.push_back(slice.Make());
            m_List.push_back(m_DataSets.back().get());
        }
        m_Series.SetIODList(m_List, mask);
        return m_Series;
    }

    CVolume& Volume() { return *m_Series.GetVolume(); }
    std::vector<int> Dimensions() {
        std::vector<int> dim(4);
        Volume().GetDimensions(dim.data());
        return dim;
    }
    const std::vector<int>& PlaneOrder() { return m_Series.m_SliceToIndex; }
    /// The planes' z after assembly.
    std::vector<float> PlaneZ(const std::vector<DataSet>& slices, std::vector<bool>* mask = nullptr) {
        std::vector<float> z;
        Assemble(slices, mask);
        for (int k = 0; k < Dimensions()[2]; ++k) z.push_back(Volume().GetPlane(k)->m_Org[2]);
        return z;
    }
    template <class Voxel = std::uint16_t>
    std::vector<Voxel> Voxels(int plane) {
        const auto* voxels = static_cast<const Voxel*>(Volume().GetPlane(plane)->m_pData);
        return {voxels, voxels + Dimensions()[0] * Dimensions()[1]};
    }

    std::vector<std::unique_ptr<DICOMDataObject>> m_DataSets;
    std::vector<DICOMDataObject*> m_List;
    CDicomVolume m_Series;
};
