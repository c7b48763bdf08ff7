#include "platform/DynamicModule.h"

#include "WideText.h"
#include "platform/File.h"

#include <windows.h>

namespace platform {

ModuleHandle OpenModule(const char* name) {
    // Without this a broken module would stop the program with a message box.
    const UINT mode = SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    const HMODULE module = LoadLibraryW(WideText(NativePath(name).c_str()).c_str());
    SetErrorMode(mode);
    return module;
}

ModuleFunction FindFunction(ModuleHandle module, const char* name) {
    return reinterpret_cast<ModuleFunction>(GetProcAddress(static_cast<HMODULE>(module), name));
}

void CloseModule(ModuleHandle module) {
    if (module != nullptr) FreeLibrary(static_cast<HMODULE>(module));
}

std::string GetModuleFile(ModuleHandle module) {
    wchar_t path[MAX_PATH + 1];
    const DWORD length = GetModuleFileNameW(static_cast<HMODULE>(module), path, MAX_PATH);
    path[length < MAX_PATH ? length : MAX_PATH] = 0;
    return NarrowText(path);
}

}  // namespace platform
