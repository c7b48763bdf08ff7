// Folders, and files as wholes: made, copied, linked, removed. Paths are as in File.h; what fails leaves `errno` set.
#pragma once

#include "StopQuestion.h"

namespace platform {

/// Whether something stands under the path and may be written to (`_access` mode 2).
bool IsWritable(const char* path);

/// Makes one folder in a folder that is there. False when anything stands under the path.
bool CreateFolder(const char* path);
/// The same for a folder that nobody else may look into. On Windows who may is told by the folder above.
bool CreatePrivateFolder(const char* path);
/// Removes a folder that is empty.
bool RemoveFolder(const char* path);

/// Gives a file the access rights of another one. On Windows who may is told by the folder.
void GiveRights(const char* source, const char* destination);

/// Copies a file with its access rights; a file that is there already is overwritten. A copy that could not be finished
/// is removed, also when `stop` said yes (`errno` is EINTR then).
bool DuplicateFile(const char* source, const char* destination, const StopQuestion& stop = {});
/// The same for a place where nobody looks before all is done: written under its own name from the beginning, which is a
/// third quicker for small files. Fails with EEXIST where the name is taken.
bool DuplicateNew(const char* source, const char* destination, const StopQuestion& stop);

/// As Windows' CreateHardLinkA: another name for the file that `existing` is, or is a symbolic link to; the attributes
/// are not used. Non-zero on success.
using LinkFunction = int (*)(const char* newName, const char* existing, void* attributes);

/// The system's function for that, looked up when the program runs; null where the system has none.
LinkFunction FindHardLink();

/// Whether a file can be removed while a program has it open. Where it cannot (Windows), none of its names can be
/// removed either.
bool RemovesOpenFiles();

}  // namespace platform
