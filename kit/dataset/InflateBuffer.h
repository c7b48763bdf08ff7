// The rest of a stream whose data set is deflated (PS3.5 A.5), inflated as it is read.
#pragma once

#include "../../Dicom/Lib/stream/Buffer.h"

#include <array>
#include <memory>

namespace korvane {

class InflateBuffer : public Buffer {
public:
    /// Reads `source` from where it stands; it must outlive this object. Throws `std::bad_alloc`.
    explicit InflateBuffer(Buffer& source);
    ~InflateBuffer() override;

    /// Whether the stream was read to the end that it marks itself.
    bool IsWhole() const;

protected:
    std::size_t Fill(void* bytes, std::size_t capacity) override;

private:
    struct State;  // zlib's

    bool Feed();

    Buffer& m_Source;
    std::unique_ptr<State> m_pState;
    std::array<unsigned char, 16384> m_Deflated{};
};

}  // namespace korvane
