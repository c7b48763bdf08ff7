// Samples in the order that suits memory, and kept ones, are those of one row after the other.
#include "RandomPlanes.h"

#include <cstring>

// Rows are sampled in tiles and side by side; one alone is not.
TEST(DcmObliqueSlice, RowsAloneAndTogetherAreTheSame) {
    Random random;
    for (const Kind& kind : kKinds) {
        for (const auto& stack : kStacks) {
            const SlicedVolume volume({kind.type, 150, 9, stack, 0.7F, 1.3F, true}, random.Noise(kind.low, kind.high));
            for (int n = 0; n < 6; ++n) {
                Slice slice(volume.Get());
                const Slice::Vector along[] = {{1, 0.01, 0.02}, {0.4, 0, 1}, random.Vector()};
                slice.SetPlane({50, 5, volume.GetLastZ() / 2}, along[n % 3], random.Vector());
                slice.SetPixelSize(0.31, 0.1);
                slice.SetSize(330, 21);  // more than a tile, no multiple of eight
                slice.SetInterpolation(static_cast<Slice::Interpolation>(n / 3));
                const auto together = Pixels(slice);
                const std::size_t bytes = together.size() / 21;
                for (int row = 0; row < 21; ++row) {
                    std::vector<unsigned char> alone(bytes);
                    ASSERT_TRUE(slice.GetPixelRows(row, 1, alone.data(), bytes));
                    ASSERT_EQ(std::memcmp(alone.data(), together.data() + bytes * static_cast<std::size_t>(row), bytes),
                              0)
                        << "row " << row << " of type " << kind.type;
                }
            }
        }
    }
}

TEST(SlabLayers, SlabsOfAMovingPlaneAreTheSameAsNewOnes) {
    Random random;
    std::size_t kept = 0, sampled = 0;
    for (const Kind& kind : kKinds) {
        const SlicedVolume volume({kind.type, 31, 28, kStacks[kind.type % 4], 0.7F, 1.3F, true},
                                  random.Noise(kind.low, kind.high));
        SlabLayers layers(1 << 24);
        Slice slice(volume.Get());
        slice.SetSize(50, 37);
        slice.SetPixelSize(0.4, 0.4);
        for (int n = 0; n < 40; ++n) {
            const bool isTurned = n % 10 == 0;
            if (isTurned) {
                slice.SetPlane({10, 16, volume.GetLastZ() / 2}, random.Vector(), random.Vector());
                slice.SetInterpolation(static_cast<Slice::Interpolation>(n / 10 % 3));
                slice.SetPadding(kind.low, n % 20 == 0 ? kind.low + (kind.high - kind.low) / 50 : kind.low - 1, 3);
            }
            slice.SetSlab(static_cast<Slice::SlabMode>(1 + n % 3), 3, 0.31);
            ASSERT_TRUE(slice.PrepareLayers(layers));
            const auto expected = Pixels(slice);
            std::vector<unsigned char> pixels(expected.size());
            const std::size_t upper = expected.size() / 37 * 20;  // in two parts, as threads do
            ASSERT_TRUE(slice.GetPixelRows(0, 20, pixels.data(), upper, layers));
            ASSERT_TRUE(slice.GetPixelRows(20, 17, pixels.data() + upper, pixels.size() - upper, layers));
            ASSERT_EQ(pixels, expected) << n << " of type " << kind.type;
            EXPECT_NEAR(layers.GetStep(), 0.3, 1e-12);
            kept += isTurned ? 0 : layers.GetRowsKept();
            sampled += isTurned ? 0 : layers.GetRowsSampled();
            slice.Move(n % 10 == 4 ? 0.123 : (n % 5 - 2) * layers.GetStep());
        }
    }
    EXPECT_GT(kept, 2 * sampled);
}

TEST(SlabLayers, LayersAreKeptWithinTheirBytesOnly) {
    Random random;
    const SlicedVolume volume({CVolume::PT_SHORT, 21, 18, kStacks[0], 0.7F, 1.3F, true}, random.Noise(-100, 100));
    Slice slice(volume.Get());
    slice.SetSize(40, 40);
    slice.SetSlab(Slice::SM_MEAN, 10, 1);
    SlabLayers layers(0);
    for (const std::size_t most : {std::size_t{10} * 1600 * 4, std::size_t{1} << 20}) {
        layers.SetMost(most);
        ASSERT_TRUE(slice.PrepareLayers(layers));
        EXPECT_LE(layers.GetBytes(), most);
        EXPECT_EQ(layers.GetCount(), most < 1 << 20 ? 0 : 11);
        const auto expected = Pixels(slice);
        std::vector<unsigned char> pixels(expected.size());
        ASSERT_TRUE(slice.GetPixelRows(0, 40, pixels.data(), pixels.size(), layers));
        EXPECT_EQ(pixels, expected);
    }
    slice.SetSlab(Slice::SM_NONE, 0);
    ASSERT_TRUE(slice.PrepareLayers(layers));
    EXPECT_EQ(layers.GetBytes(), 0U);
    EXPECT_FALSE(Slice().PrepareLayers(layers));
}
