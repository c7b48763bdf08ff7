// Modules loaded at run time: functions by name out of a dynamic library.
#pragma once

#include <string>

namespace platform {

/// A loaded module; null: none.
using ModuleHandle = void*;
/// A function of it, to be cast to its own type.
using ModuleFunction = void (*)();

/// Loads a module; null on failure. The same module may be loaded several times, and is gone when each is freed.
///
/// The name is Windows' own: "X.dll", with or without a folder. There it goes to `LoadLibrary` as it is. On POSIX a name
/// that ends in ".dll" stands for one that ends in ".so"; any other name is taken as it is. A name without a folder is
/// looked for beside the program, beside the module libKorvane, in the folder of libraries next to the program's, where this
/// library was to be installed, then where the system looks for its libraries; never in the current directory. All its symbols are bound at once and stay its own.
///
/// A line break or a blank at the end of a name is part of it, so such a name finds nothing on either system.
ModuleHandle OpenModule(const char* name);

/// Null when the module has no function of that name.
ModuleFunction FindFunction(ModuleHandle module, const char* name);

/// Null is ignored.
void CloseModule(ModuleHandle module);

/// Path of a module's file, of the program's for null; "" when the system does not tell.
std::string GetModuleFile(ModuleHandle module);

}  // namespace platform
