#include "ReplacingFile.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string_view>

namespace platform {

namespace {

constexpr int kAttempts = 100;
constexpr std::size_t kLongestStem = 200;  // most file systems end at 255 bytes

// Eight letters that hardly ever come twice. They need not be secret: what has the name already is left alone.
std::string RandomLetters(std::uint64_t seed) {
    constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz234567";
    seed = (seed ^ (seed >> 30)) * 0xBF58476D1CE4E5B9U;
    seed = (seed ^ (seed >> 27)) * 0x94D049BB133111EBU;
    seed ^= seed >> 31;
    std::string letters;
    for (int i = 0; i < 8; ++i, seed >>= 5) letters += kLetters[seed % kLetters.size()];
    return letters;
}

// The beginning of a name, cut between two characters of UTF-8.
std::string Shortened(std::string name) {
    if (name.size() <= kLongestStem) return name;
    std::size_t end = kLongestStem;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
    name.resize(end);
    return name;
}

}  // namespace

bool ReplacingFile::Open(const std::string& path) {
    Discard();
    const std::string folder = FolderOf(path);
    std::string stem = "." + Shortened(path.substr(folder.size()));
    const auto now = static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
    const std::uint64_t seed = now * 0x9E3779B97F4A7C15U + reinterpret_cast<std::uintptr_t>(this);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::string name =
            folder + stem + "." + RandomLetters(seed + static_cast<std::uint64_t>(attempt)) + ".part";
        if (m_File.OpenExclusively(name.c_str())) {
            m_Path = path;
            m_Unfinished = name;
            return true;
        }
        if (errno == ENAMETOOLONG && !stem.empty()) {
            stem.clear();
        } else if (errno != EEXIST) {
            break;
        }
    }
    return false;
}

bool WriteRest(OutputFile& output, InputFile& input) {
    constexpr std::uint64_t kLargestBlock = 1 << 20;
    const auto size = static_cast<std::size_t>(std::clamp<std::uint64_t>(input.GetSize(), 1 << 12, kLargestBlock));
    const auto block = std::make_unique_for_overwrite<unsigned char[]>(size);
    while (const std::size_t count = input.Read(block.get(), size)) {
        if (!output.Write(block.get(), count)) return false;
    }
    return !input.HasFailed();
}

bool ReplacingFile::Close() {
    if (m_bDurable) m_File.Sync();
    return m_File.Close();
}

bool ReplacingFile::CommitAs(const std::string& path, Existing existing) {
    if (m_Unfinished.empty()) {
        errno = EBADF;
        return false;
    }
    if (!Close()) return false;
    const auto rename = existing == Existing::Replace ? RenameOver : RenameNew;
    if (!rename(m_Unfinished.c_str(), path.c_str())) return false;
    m_Unfinished.clear();
    return !m_bDurable || SyncFolderOf(path.c_str());
}

void ReplacingFile::Discard() noexcept {
    const int kept = errno;
    m_File.Close();
    if (!m_Unfinished.empty()) RemoveFile(m_Unfinished.c_str());
    m_Unfinished.clear();
    errno = kept;
}

}  // namespace platform
