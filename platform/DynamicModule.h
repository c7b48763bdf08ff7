// Modules loaded at run time: functions by name out of a dynamic library.
#pragma once

#include <string>

namespace platform {

/// A loaded module; null stands for none.
using ModuleHandle = void*;
/// A function of a module, to be cast to its real type.
using ModuleFunction = void (*)();

/// Loads a module; null on failure. The same module may be loaded several times, and is gone when each is freed.
///
/// Names are those of Windows: "X.dll", with or without a folder. On Windows the name goes to `LoadLibrary` unchanged.
/// On POSIX a name that ends in ".dll" stands for one that ends in ".so"; any other name is taken as it is.
///
/// On POSIX a name without a folder is looked for in these places, in this order: the program's folder; the folder of
/// the library libKorvane; the library folder beside the program's (P/lib for P/bin); the library folder that the build
/// was configured to install to; the system's own search path. The current directory is not searched. All symbols of
/// the module are bound when it is loaded, and none of them is visible to other modules.
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
