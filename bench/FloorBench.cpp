// usage: bench_floor read FOLDER              each file below the folder opened and read
//        bench_floor heads FOLDER             only its first 4 KB
//        bench_floor load FOLDER              all files' bytes into fresh memory of huge pages
//        bench_floor join FOLDER FILE BYTES   all files read, and so many bytes written into one file
//        bench_floor copy FOLDER OUT          each file read and written as one in OUT
//        bench_floor memcpy|plain|huge        200 MB copied; into memory that is at hand, fresh memory, fresh huge pages
//
// What jobs of the program are measured beside: the work that none of them can do without, as plain as it can be written,
// in a process of its own.
#include <Korvane/platform/memory/Memory.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;
using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

constexpr std::size_t kBlock = 512 * 1024, kHead = 4096, kCopied = std::size_t{200} << 20;

File Open(const fs::path& path, const char* mode) {
    File file(std::fopen(path.string().c_str(), mode), std::fclose);
    if (file == nullptr) throw std::runtime_error("cannot open " + path.string());
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    return file;
}

std::vector<fs::path> FilesBelow(const fs::path& folder) {
    std::vector<fs::path> paths;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

// Reads at most so many bytes.
std::size_t Read(const fs::path& path, unsigned char* out, std::size_t most) {
    return std::fread(out, 1, most, Open(path, "rb").get());
}

void Write(std::FILE* file, const unsigned char* bytes, std::size_t size) {
    if (std::fwrite(bytes, 1, size, file) != size) throw std::runtime_error("cannot write");
}

std::size_t Largest(const std::vector<fs::path>& paths) {
    std::size_t most = 1;
    for (const fs::path& path : paths) most = std::max(most, static_cast<std::size_t>(fs::file_size(path)));
    return most;
}

void Load(const std::vector<fs::path>& paths) {
    std::size_t all = 0;
    for (const fs::path& path : paths) all += static_cast<std::size_t>(fs::file_size(path));
    auto* const bytes = static_cast<unsigned char*>(platform::AllocateBuffer(all));
    if (bytes == nullptr) throw std::runtime_error("no memory");
    std::size_t at = 0;
    for (const fs::path& path : paths) at += Read(path, bytes + at, all - at);
    platform::FreeBuffer(bytes);
}

void Join(const std::vector<fs::path>& paths, const fs::path& out, std::size_t left) {
    std::vector<unsigned char> bytes(std::max(Largest(paths), kBlock));
    const File file = Open(out, "wb");
    for (const fs::path& path : paths) Read(path, bytes.data(), bytes.size());
    for (; left > 0; left -= std::min(left, kBlock)) Write(file.get(), bytes.data(), std::min(left, kBlock));
}

void CopyFiles(const std::vector<fs::path>& paths, const fs::path& out) {
    std::vector<unsigned char> bytes(Largest(paths));
    fs::create_directories(out);
    for (const fs::path& path : paths) {
        const std::size_t size = Read(path, bytes.data(), bytes.size());
        Write(Open(out / path.filename(), "wb").get(), bytes.data(), size);
    }
}

void CopyMemory(std::string_view how) {
    const std::vector<unsigned char> from(how == "memcpy" ? kCopied / 8 : kCopied, 1);
    if (how == "memcpy") {
        std::vector<unsigned char> to(from.size());
        for (int i = 0; i < 8; ++i) std::memcpy(to.data(), from.data(), from.size());
    } else if (how == "plain") {
        const std::unique_ptr<void, void (*)(void*)> to(std::malloc(from.size()), std::free);
        std::memcpy(to.get(), from.data(), from.size());
    } else {
        const std::unique_ptr<void, void (*)(void*)> to(platform::AllocateBuffer(from.size()), platform::FreeBuffer);
        std::memcpy(to.get(), from.data(), from.size());
    }
}

void Run(const std::vector<std::string>& words) {
    const std::string& what = words[0];
    if (words.size() == 1) return CopyMemory(what);
    const std::vector<fs::path> paths = FilesBelow(words[1]);
    if (what == "load") return Load(paths);
    if (what == "join") return Join(paths, words.at(2), std::stoull(words.at(3)));
    if (what == "copy") return CopyFiles(paths, words.at(2));
    std::vector<unsigned char> bytes(what == "heads" ? kHead : Largest(paths));
    for (const fs::path& path : paths) Read(path, bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc < 2) throw std::runtime_error("what?");
        Run({argv + 1, argv + argc});
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench_floor: %s\n", failure.what());
        return 1;
    }
}
