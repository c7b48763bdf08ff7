#include "platform/FileTree.h"

#include "platform/ReplacingFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

int HardLink(const char* newName, const char* existing, void*) {
    const int linked =
        linkat(AT_FDCWD, NativePath(existing).c_str(), AT_FDCWD, NativePath(newName).c_str(), AT_SYMLINK_FOLLOW);
    return linked == 0 ? 1 : 0;
}

}  // namespace

bool IsWritable(const char* path) {
    return access(NativePath(path).c_str(), W_OK) == 0;
}

bool CreateFolder(const char* path) {
    return mkdir(NativePath(path).c_str(), 0777) == 0;
}

bool CreatePrivateFolder(const char* path) {
    return mkdir(NativePath(path).c_str(), 0700) == 0;
}

bool RemoveFolder(const char* path) {
    return rmdir(NativePath(path).c_str()) == 0;
}

void GiveRights(const char* source, const char* destination) {
    struct stat status;
    if (stat(NativePath(source).c_str(), &status) == 0) chmod(NativePath(destination).c_str(), status.st_mode & 0777);
}

bool DuplicateFile(const char* source, const char* destination, const StopQuestion& stop) {
    InputFile input;
    ReplacingFile output;
    input.SetStopQuestion(stop);
    if (!input.Open(source) || !output.Open(destination)) return false;
    GiveRights(source, output.GetUnfinished().c_str());
    return output.WriteAll(input) && output.Commit();
}

LinkFunction FindHardLink() {
    return HardLink;
}

bool RemovesOpenFiles() {
    return true;
}

}  // namespace platform
