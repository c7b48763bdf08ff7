#include "DynamicModule.h"

#include "File.h"

#if defined(_WIN32)
#include "WideText.h"

#include <windows.h>
#else
#include <dlfcn.h>
#include <link.h>

#include <climits>
#include <cstdlib>
#include <string_view>
#endif

namespace platform {

std::string FolderOf(const std::string& path) {
    const std::size_t separator = path.find_last_of("/\\");
    return separator == std::string::npos ? "" : path.substr(0, separator + 1);
}

#if defined(_WIN32)

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

#else

namespace {

std::string ProgramFile() {
    char path[PATH_MAX];
    return realpath("/proc/self/exe", path) != nullptr ? path : "";
}

/// Folder of the module libKorvane, where the process has it; "" otherwise. This code may be part of the program, so
/// its own address does not tell.
std::string LibraryFolder() {
    std::string folder;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* result) {
            const std::string path = info->dlpi_name;
            const std::string at = FolderOf(path);
            if (at.empty() || !std::string_view(path).substr(at.size()).starts_with("libKorvane.so")) return 0;
            *static_cast<std::string*>(result) = at;
            return 1;
        },
        &folder);
    return folder;
}

/// `dlopen` calls what is broken or missing by the same null.
ModuleHandle OpenFileOf(const std::string& name) {
    return dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
}

}  // namespace

ModuleHandle OpenModule(const char* name) {
    std::string file = NativePath(name);
    if (file.empty()) return nullptr;
    for (const std::string_view ending : {".dll", ".DLL"}) {
        if (file.ends_with(ending)) file.replace(file.size() - ending.size(), ending.size(), ".so");
    }
    if (!FolderOf(file).empty()) return OpenFileOf(file);
    for (const std::string& folder : {FolderOf(ProgramFile()), LibraryFolder()}) {
        if (folder.empty()) continue;
        if (void* const module = OpenFileOf(folder + file)) return module;
    }
    return OpenFileOf(file);
}

ModuleFunction FindFunction(ModuleHandle module, const char* name) {
    return reinterpret_cast<ModuleFunction>(dlsym(module, name));
}

void CloseModule(ModuleHandle module) {
    if (module != nullptr) dlclose(module);
}

std::string GetModuleFile(ModuleHandle module) {
    if (module == nullptr) return ProgramFile();
    const link_map* map = nullptr;
    return dlinfo(module, RTLD_DI_LINKMAP, static_cast<void*>(&map)) == 0 ? map->l_name : "";
}

#endif

}  // namespace platform
