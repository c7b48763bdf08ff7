// Takes records and their files out of a medium.
#include "../core/Error.h"
#include "../core/Paths.h"
#include "../core/Watch.h"
#include "DirectoryCheck.h"
#include "DirectoryTree.h"
#include "Medium.h"
#include "MediumFolders.h"

#include <filesystem>
#include <set>
#include <system_error>

namespace korvane {

namespace fs = std::filesystem;

namespace {

std::set<std::string> FilesOf(DirectoryTree& tree) {
    std::set<std::string> files;
    tree.ForEach([&](DirectoryTree::Node& node, std::size_t, std::size_t) {
        const std::string path = PathOfFileId(FindText(*node.record, tags::ReferencedFileID));
        if (!path.empty()) files.insert(path);
    });
    return files;
}

// A link among the folders would lead the removal out of the medium.
bool LiesInFolders(const fs::path& root, const fs::path& file) {
    for (fs::path folder = file.parent_path(); folder != root; folder = folder.parent_path()) {
        std::error_code error;
        if (!folder.has_relative_path() || !fs::is_directory(fs::symlink_status(folder, error))) return false;
    }
    return true;
}

void RemoveFileOf(const std::string& root, const std::string& path, MediumRemoval& removal) {
    const fs::path base = PathFromText(root);
    const fs::path file = PathFromText(root + path);
    std::error_code error;
    if (!LiesInFolders(base, file)) {
        removal.faults.push_back(path.substr(1) + " does not lie in folders of the medium, and stays");
    } else if (!fs::remove(file, error)) {
        removal.faults.push_back("cannot remove " + path.substr(1) + ": " + SystemText(error, root + path));
    } else {
        removal.removed.push_back(path.substr(1));
        for (fs::path folder = file.parent_path(); folder != base && fs::is_empty(folder, error);
             folder = folder.parent_path()) {
            fs::remove(folder, error);
        }
    }
}

}  // namespace

MediumRemoval RemoveFromMedium(const std::string& root, const std::vector<std::string>& ids, Watcher* watcher) {
    if (ids.empty()) throw Error(ErrorKind::WrongArgument, "no IDs given");
    const Watch watch(watcher);
    const std::string base = WithoutEndSlash(root);
    MediumFolders folders(base, MediumFolders::Medium::Shrink);
    folders.Make();
    DirectoryTree tree = DirectoryTree::Read(folders.GetDirectory(), watch);
    const std::set<std::string> before = FilesOf(tree);
    for (const std::string& id : ids) {
        if (!id.empty() && tree.Remove(id) > 0) continue;
        std::string why = base;
        why.append(": no record has the ID \"").append(id).append("\"");
        throw Error(ErrorKind::NotFound, why).InFile(folders.GetDirectory());
    }
    const std::set<std::string> left = FilesOf(tree);
    tree.Write(folders.GetUnfinished());
    MediumRemoval removal;
    removal.medium = CheckDirectory(base, folders.GetUnfinished(), MediumDepth::Names, watch);
    if (removal.medium.files < left.size()) throw Error(ErrorKind::Damaged, base + ": records would be lost");
    watch.StopIfAsked();
    folders.Keep();
    for (const std::string& path : before) {
        if (!left.contains(path)) RemoveFileOf(base, path, removal);
    }
    return removal;
}

}  // namespace korvane
