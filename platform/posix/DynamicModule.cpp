#include "platform/DynamicModule.h"

#include "platform/File.h"

#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <link.h>
#include <string_view>

namespace platform {

namespace {

std::string ProgramFile() {
    char path[PATH_MAX];
    return realpath("/proc/self/exe", path) != nullptr ? path : "";
}

// Folder of the module libKorvane, where the process has it; "" otherwise. This code may be part of the program, so
// its own address does not tell.
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

// Null where the file is missing, and where it is no module that can be loaded.
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
    const std::string program = FolderOf(ProgramFile());
    // A program that holds the library itself, in P/bin, has its modules in P/lib or the folder that was configured.
    const std::string beside = program.empty() ? "" : program + "../" KORVANE_LIBRARY_FOLDER "/";
    for (const std::string& folder : {program, LibraryFolder(), beside, std::string(KORVANE_INSTALLED_FOLDER "/")}) {
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

}  // namespace platform
