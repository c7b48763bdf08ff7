// Rows of a slab's layers, each with the positions that its samples were taken at.
#pragma once

#include "SlicePadding.h"
#include "StripSampler.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

class CVolume;

namespace korvane_detail {

/// A ring of layers. Different threads may work on different rows.
class KeptLayers {
public:
    /// What samples depend on besides their positions, and how many there are.
    struct Form {
        const CVolume* m_pVolume = nullptr;
        Sampling m_Sampling = Sampling::kLinear;
        PaddingRange m_Padding = {1, 0};
        int m_Width = 0;
        int m_Height = 0;
        int m_Layers = 0;
        std::size_t m_SampleBytes = 0;

        bool IsPadded() const { return m_Padding.m_Low <= m_Padding.m_High; }
        bool operator==(const Form& other) const;
    };
    struct Row {
        std::vector<SliceStrip> m_Strips;
        bool m_bKept = false;  ///< when it was last looked at
    };

    static double CountBytes(const Form& form);

    /// `centre`: of the slab, along the volume's axes; `step`: from layer to layer along `normal`, millimetres.
    void Prepare(const Form& form, const std::array<double, 3>& centre, const std::array<double, 3>& normal,
                 double step);
    bool IsFor(const Form& form) const { return m_Form == form; }
    const Form& GetForm() const { return m_Form; }
    double GetStep() const { return m_Step; }
    std::size_t CountRows(bool kept) const;

    Row& GetRow(int layer, int row) { return m_Rows[IndexOf(layer, row)]; }
    unsigned char* GetSamples(int layer, int row) { return m_Samples.data() + IndexOf(layer, row) * RowBytes(); }
    /// Null without padding.
    unsigned char* GetMeasured(int layer, int row) {
        return m_Form.IsPadded() ? m_Measured.data() + IndexOf(layer, row) * static_cast<std::size_t>(m_Form.m_Width)
                                 : nullptr;
    }

private:
    std::size_t IndexOf(int layer, int row) const {
        return static_cast<std::size_t>((layer + m_nFirst) % m_Form.m_Layers) *
                   static_cast<std::size_t>(m_Form.m_Height) +
               static_cast<std::size_t>(row);
    }
    std::size_t RowBytes() const { return static_cast<std::size_t>(m_Form.m_Width) * m_Form.m_SampleBytes; }

    Form m_Form;
    std::array<double, 3> m_Centre = {0, 0, 0};
    double m_Step = 0;
    int m_nFirst = 0;  // where in the ring the first layer is
    std::vector<Row> m_Rows;
    std::vector<unsigned char> m_Samples;
    std::vector<unsigned char> m_Measured;
};

/// Whether samples of both lie at the same positions.
bool AreSame(const SliceStrip* strips, std::size_t count, const std::vector<SliceStrip>& kept);

}  // namespace korvane_detail
