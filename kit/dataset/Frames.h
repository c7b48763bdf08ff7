// Single frames of large images.
//
//     const korvane::FrameReader frames("slide.dcm");
//     std::cout << frames.GetCount() << " frames\n";
//     const korvane::DataSet tile = frames.Read(4711);
#pragma once

#include "../core/Finding.h"
#include "../core/KitExport.h"
#include "../core/Watcher.h"
#include "DataSet.h"
#include "Leniency.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace korvane {

struct FrameOptions {
    Leniency leniency{};
    /// Data sets of frames are without functional groups (PS3.3 C.7.6.16), which fill the memory where frames are many.
    bool dropGroups = false;
    Watcher* watcher = nullptr;  ///< must outlive the reader
};

/// Reads frames of one file without the others: the pixels stay in the file (`ReadOptions::leaveLarger`). Where the frames
/// of compressed pixel data lie is found once, by the fragments, the basic offset table, the Extended Offset Table
/// (7FE0,0001), or the marks that frames begin with (PS3.5 A.4); frames may be cut into several fragments. A table that
/// does not fit the fragments is not believed.
///
/// All throw `Error`: `WrongArgument` for a frame that there is not, `Disk` also when the file has changed since. For one
/// thread at a time.
class KORVANE_KIT FrameReader {
public:
    /// Throws `Error` as `DataSet::Read`; `Unsupported` without pixel data; `Damaged` where nothing tells the frames apart.
    explicit FrameReader(const std::string& path, const FrameOptions& options = {});
    ~FrameReader();
    FrameReader(FrameReader&& other) noexcept;
    FrameReader& operator=(FrameReader&& other) noexcept;

    /// Frames that are there.
    std::size_t GetCount() const;
    /// What reading forgave, tables that are wrong, frames that are missing.
    const std::vector<Finding>& GetFindings() const;

    /// The bytes of a frame, counted from 0, as they are stored: a compressed stream, or pixels as the header says, little
    /// endian (of one bit a pixel: from the first bit of a byte on).
    std::vector<unsigned char> ReadStored(std::size_t frame) const;

    /// The data set as if this were its only frame: Number of Frames is 1, of the Per-Frame Functional Groups that of this
    /// frame is left, and Pixel Data is decoded (then the attributes of the image say what it is now, as after `Convert`).
    /// It is no SOP instance of its own: UIDs are those of the whole. `Unsupported` where no codec is there.
    DataSet Read(std::size_t frame) const;

private:
    struct State;
    std::unique_ptr<State> m_pState;
};

}  // namespace korvane
