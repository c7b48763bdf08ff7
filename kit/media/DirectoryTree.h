// The records of a DICOMDIR, to be changed and written again.
#pragma once

#include "../core/Watch.h"
#include "DirectoryFile.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace korvane {

/// All records with all their elements, those of other makers too. Offsets (PS3.3 F.2.2) are only used on the way in, and
/// made anew on the way out.
class DirectoryTree {
public:
    struct Node {
        std::unique_ptr<DICOMObject> record;
        std::vector<Node> below;
    };

    /// Throws `Error`: `NotDicom`, and `Damaged` where not each record is led to exactly once or records refer to others
    /// by retired ways, since writing would lose some.
    static DirectoryTree Read(const std::string& path, const Watch& watch);

    /// Takes over all records of another tree: below a patient, study or series that is here already where there is one.
    void Merge(DirectoryTree other);

    /// Takes out what has this Patient ID or Study, Series or SOP Instance UID, with all below it, and what is then left
    /// without anything below. Returns how many records had the ID.
    std::size_t Remove(const std::string& id);

    /// Each record behind the one that it is below of; `parents` counts those above, `number` from 1 within its parent.
    using Visit = std::function<void(Node& node, std::size_t parents, std::size_t number)>;
    void ForEach(const Visit& visit) { Walk(m_Roots, 0, visit); }

    /// The directory's own elements, meta information too.
    DICOMDataObject& GetHead() { return *m_pHead; }

    /// Writes the directory over a file, which is not whole when this throws `Error`. The tree is then empty.
    void Write(const std::string& path);

private:
    class Reader;

    static void Join(std::vector<Node>& nodes, std::vector<Node> others);
    static std::size_t RemoveFrom(std::vector<Node>& nodes, const std::string& id);
    static void Walk(std::vector<Node>& nodes, std::size_t parents, const Visit& visit);

    std::unique_ptr<DICOMDataObject> m_pHead;
    std::vector<Node> m_Roots;
};

}  // namespace korvane
