#include "FileTree.h"

#include "ReplacingFile.h"

#include <cerrno>

namespace platform {

bool DuplicateNew(const char* source, const char* destination, const StopQuestion& stop) {
    InputFile input;
    OutputFile output;
    input.SetStopQuestion(stop);
    if (!input.Open(source) || !output.OpenExclusively(destination)) return false;
    GiveRights(source, destination);
    if (WriteRest(output, input) && output.Close()) return true;
    const int error = errno;
    output.Close();
    RemoveFile(destination);
    errno = error;
    return false;
}

}  // namespace platform
