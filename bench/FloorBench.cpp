// usage: bench_floor read FOLDER              each file below the folder opened and read
//        bench_floor heads FOLDER             only its first 4 KB
//        bench_floor load FOLDER              all files' bytes into fresh memory of huge pages
//        bench_floor join FOLDER FILE BYTES   all files read, and so many bytes written into one file
//        bench_floor copy FOLDER OUT          each file read and written as one in OUT
//        bench_floor read2|heads2|load2|join2|copy2 ...   the same by two threads: each has every second file, but for join2, where one
//                                                         reads the files and the other writes
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
#include <thread>
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

// `work` with the numbers of all files, or with those of every second one on two threads.
template <class Work>
void ForFiles(std::size_t count, bool two, const Work& work) {
    const auto half = [&](std::size_t first) {
        for (std::size_t i = first; i < count; i += 2) work(i);
    };
    if (!two) {
        for (std::size_t i = 0; i < count; ++i) work(i);
        return;
    }
    std::thread other(half, 1);
    half(0);
    other.join();
}

void ReadAll(const std::vector<fs::path>& paths, std::size_t most, bool two) {
    ForFiles(paths.size(), two, [&](std::size_t i) {
        thread_local std::vector<unsigned char> bytes(most);
        Read(paths[i], bytes.data(), bytes.size());
    });
}

void Load(const std::vector<fs::path>& paths, bool two) {
    std::vector<std::size_t> places(1);
    for (const fs::path& path : paths) places.push_back(places.back() + static_cast<std::size_t>(fs::file_size(path)));
    auto* const bytes = static_cast<unsigned char*>(platform::AllocateBuffer(places.back()));
    if (bytes == nullptr) throw std::runtime_error("no memory");
    ForFiles(paths.size(), two, [&](std::size_t i) { Read(paths[i], bytes + places[i], places[i + 1] - places[i]); });
    platform::FreeBuffer(bytes);
}

void Join(const std::vector<fs::path>& paths, const fs::path& out, std::size_t left, bool two) {
    const std::vector<unsigned char> bytes(kBlock, 1);
    const auto read = [&] { ReadAll(paths, Largest(paths), false); };
    std::thread reader = two ? std::thread(read) : std::thread();
    if (!two) read();
    const File file = Open(out, "wb");
    for (; left > 0; left -= std::min(left, kBlock)) Write(file.get(), bytes.data(), std::min(left, kBlock));
    if (two) reader.join();
}

void CopyFiles(const std::vector<fs::path>& paths, const fs::path& out, bool two) {
    const std::size_t most = Largest(paths);
    fs::create_directories(out);
    ForFiles(paths.size(), two, [&](std::size_t i) {
        thread_local std::vector<unsigned char> bytes(most);
        const std::size_t size = Read(paths[i], bytes.data(), bytes.size());
        Write(Open(out / paths[i].filename(), "wb").get(), bytes.data(), size);
    });
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
    std::string what = words[0];
    if (words.size() == 1) return CopyMemory(what);
    const bool two = what.ends_with('2');
    if (two) what.pop_back();
    const std::vector<fs::path> paths = FilesBelow(words[1]);
    if (what == "load") return Load(paths, two);
    if (what == "join") return Join(paths, words.at(2), std::stoull(words.at(3)), two);
    if (what == "copy") return CopyFiles(paths, words.at(2), two);
    ReadAll(paths, what == "heads" ? kHead : Largest(paths), two);
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
