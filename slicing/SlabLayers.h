// What a slab was made of, for the next one.
#pragma once

#include "../base/Export.h"

#include <cstddef>
#include <memory>

namespace korvane_detail {
class KeptLayers;
}

/// Samples of the layers of a slab, kept for the slab of a plane that moved along its normal: `DcmObliqueSlice` takes from
/// here what it would sample anew otherwise. A row of a layer is taken only where its samples lie at the very same
/// positions, to the last bit of their fixed point, and samples are put together in the order of a slab made afresh: the
/// result is the same to the bit. A plane that moves by a multiple of `GetStep` finds nearly all of its layers (rounding moves
/// a row now and then), one that moves by anything else none.
///
///     SlabLayers layers(256 << 20);
///     slice.SetSlab(DcmObliqueSlice::SM_MEAN, 10);
///     for (;;) {
///         slice.PrepareLayers(layers);
///         slice.GetPixelRows(0, slice.GetHeight(), pixels, bytes, layers);
///         slice.Move(layers.GetStep());
///     }
///
/// It belongs to one volume, whose voxels must stay as they are. Nothing is kept of means over areas.
class KORVANE_API SlabLayers {
public:
    /// `most`: bytes that samples may take. A slab that needs more is sampled without.
    explicit SlabLayers(std::size_t most);
    ~SlabLayers();
    SlabLayers(const SlabLayers&) = delete;
    SlabLayers& operator=(const SlabLayers&) = delete;

    void SetMost(std::size_t most) { m_nMost = most; }
    std::size_t GetMost() const { return m_nMost; }
    std::size_t GetBytes() const;  ///< that samples take
    double GetStep() const;        ///< millimetres from layer to layer; 0 where nothing is kept
    int GetCount() const;          ///< layers; 0 where nothing is kept
    /// Rows of layers that the last picture took from here, and that it sampled.
    std::size_t GetRowsKept() const;
    std::size_t GetRowsSampled() const;
    void Clear();

private:
    friend class DcmObliqueSlice;

    std::size_t m_nMost;
    std::unique_ptr<korvane_detail::KeptLayers> m_pKept;
};
