// Where the frames of one file lie, small enough to be kept for each of many thousand files.
#pragma once

#include "FramePlace.h"

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

namespace korvane {

/// What is the same in several places but for the position is held once. What an empty object does not have must not be
/// asked for.
class FramePlaces {
public:
    FramePlaces() = default;
    /// As often as that, which is at least once.
    FramePlaces(const FramePlace& place, std::size_t count);

    void Add(const FramePlace& place);
    /// A place of another file, together with it.
    void Add(const FramePlaces& from, std::size_t frame) { Add(from.EntryOf(frame)); }
    void Reserve(std::size_t count) { m_Others.reserve(count); }
    void Set(std::size_t frame, const FramePlace& place);
    void SetPosition(std::size_t frame, const std::array<double, 3>& position) { EntryOf(frame).position = position; }

    std::size_t GetCount() const { return m_First.plane == nullptr ? 0 : m_Others.size() + 1; }
    FramePlace Get(std::size_t frame) const;
    const std::array<double, 3>& GetPosition(std::size_t frame) const { return EntryOf(frame).position; }
    /// All but the position, which is that of no frame. Valid as long as this object, or one that shares it.
    const FramePlace& GetPlane(std::size_t frame) const { return *EntryOf(frame).plane; }

    /// Holds what is the same in the first place of `met` together with it; false where it is not the same.
    bool ShareWith(const FramePlaces& met);

private:
    struct Entry {
        std::array<double, 3> position{};
        std::shared_ptr<const FramePlace> plane;
    };

    const Entry& EntryOf(std::size_t frame) const { return frame == 0 ? m_First : m_Others[frame - 1]; }
    Entry& EntryOf(std::size_t frame) { return frame == 0 ? m_First : m_Others[frame - 1]; }
    void Add(const Entry& entry);

    Entry m_First;
    std::vector<Entry> m_Others;
};

}  // namespace korvane
