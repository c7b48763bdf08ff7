#include "Archive.h"

#include "../core/Error.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#ifdef KORVANE_KIT_ARCHIVES
#include "../core/LateLibrary.h"
#include "platform/File.h"

#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <optional>
#endif

namespace korvane {

namespace {

bool HasAt(std::span<const unsigned char> head, std::size_t offset, std::string_view mark) {
    return head.size() >= offset + mark.size() && std::memcmp(head.data() + offset, mark.data(), mark.size()) == 0;
}

}  // namespace

bool LooksLikeArchive(std::span<const unsigned char> head) {
    constexpr std::size_t kTarMark = 257;
    return HasAt(head, 0, "PK\3\4") || HasAt(head, 0, "PK\5\6") || HasAt(head, 0, "\x1F\x8B\x08") ||
           HasAt(head, 0, "BZh") ||
           HasAt(head, 0,
                 std::string_view("\xFD"
                                  "7zXZ\0",
                                  6)) ||
           HasAt(head, kTarMark, "ustar");
}

#ifdef KORVANE_KIT_ARCHIVES

namespace {

// Calls below find these in place of the library's own.
constinit const LateLibrary kArchive(KORVANE_KIT_ARCHIVES);
KORVANE_LATE(kArchive, archive_entry_filetype);
KORVANE_LATE(kArchive, archive_entry_hardlink);
KORVANE_LATE(kArchive, archive_entry_is_encrypted);
KORVANE_LATE(kArchive, archive_entry_pathname);
KORVANE_LATE(kArchive, archive_error_string);
KORVANE_LATE(kArchive, archive_read_data);
KORVANE_LATE(kArchive, archive_read_free);
KORVANE_LATE(kArchive, archive_read_new);
KORVANE_LATE(kArchive, archive_read_next_header);
KORVANE_LATE(kArchive, archive_read_open_filename);
KORVANE_LATE(kArchive, archive_read_support_filter_bzip2);
KORVANE_LATE(kArchive, archive_read_support_filter_gzip);
KORVANE_LATE(kArchive, archive_read_support_filter_xz);
KORVANE_LATE(kArchive, archive_read_support_format_tar);
KORVANE_LATE(kArchive, archive_read_support_format_zip);

constexpr std::size_t kReadSize = std::size_t{1} << 16;
constexpr std::size_t kLongestName = 1024;

class Unpacking {
public:
    Unpacking(const NamedFile& archive, const InputOptions& options, const Watch& watch, Inputs& inputs)
        : m_File(archive), m_Options(options), m_Watch(watch), m_Inputs(inputs), m_pArchive(archive_read_new()) {
        if (m_pArchive == nullptr) throw std::bad_alloc();
        archive_read_support_format_zip(m_pArchive);
        archive_read_support_format_tar(m_pArchive);
        archive_read_support_filter_gzip(m_pArchive);
        archive_read_support_filter_bzip2(m_pArchive);
        archive_read_support_filter_xz(m_pArchive);
    }
    ~Unpacking() { archive_read_free(m_pArchive); }
    Unpacking(const Unpacking&) = delete;
    Unpacking& operator=(const Unpacking&) = delete;

    void Do() {
        if (archive_read_open_filename(m_pArchive, m_File.place.c_str(), kReadSize) != ARCHIVE_OK) {
            Tell("cannot read the archive: " + WhyFailed());
            return;
        }
        TaskProgress progress(m_Watch, "unpacking", 0);
        while (Next()) {
            if (!TakeEntry()) break;
        }
        if (m_nEncrypted > 0) Tell(std::to_string(m_nEncrypted) + " encrypted entries were not read");
    }

private:
    void Tell(const std::string& what) {
        m_Inputs.unreadable.push_back(
            {.kind = FindingKind::Unreadable, .files = {m_File.name}, .text = m_File.name + ": " + what});
    }

    std::string WhyFailed() const {
        const char* const text = archive_error_string(m_pArchive);
        return text != nullptr ? text : "it is damaged";
    }

    /// False at the end, and where nothing can be read any more.
    bool Next() {
        m_Watch.StopIfAsked();
        const int result = archive_read_next_header(m_pArchive, &m_pEntry);
        if (result == ARCHIVE_EOF) return false;
        if (result < ARCHIVE_WARN) {
            Tell("the archive is broken; what follows was not read: " + WhyFailed());
            return false;
        }
        if (++m_nEntries <= m_Options.mostEntries) return true;
        Tell("more than " + std::to_string(m_Options.mostEntries) + " entries; the rest was not read");
        return false;
    }

    std::string NameOfEntry() const {
        const char* const name = archive_entry_pathname(m_pEntry);
        return m_File.name + ": " + std::string(name != nullptr ? name : "?").substr(0, kLongestName);
    }

    /// False where nothing can be read any more.
    bool TakeEntry() {
        if (archive_entry_filetype(m_pEntry) != AE_IFREG || archive_entry_hardlink(m_pEntry) != nullptr) return true;
        if (archive_entry_is_encrypted(m_pEntry) != 0) {
            ++m_nEncrypted;
            return true;
        }
        const std::string name = NameOfEntry();
        unsigned char head[kHeadOfDataSet];
        std::size_t size = 0;
        while (size < sizeof head) {
            const auto read = Read(head + size, sizeof head - size);
            if (!read) return m_bGoOn;
            if (*read == 0) break;
            size += *read;
        }
        if (LooksLikeDataSet({head, size})) return Unpack(name, {head, size});
        m_Inputs.passedOver.push_back({name, "not a DICOM file"});
        return PassOver();
    }

    bool Unpack(const std::string& name, std::span<const unsigned char> head) {
        const std::string place = m_Inputs.unpacked->NewFile();
        platform::OutputFile file;
        bool written = file.OpenExclusively(place.c_str()) && file.Write(head.data(), head.size());
        for (bool more = written; more;) {
            const auto read = Read(m_Bytes, sizeof m_Bytes);
            if (!read) {
                m_Inputs.unpacked->DropLastFile();
                return m_bGoOn;
            }
            more = *read > 0;
            written = !more || file.Write(m_Bytes, *read);
            more = more && written;
        }
        if (!written || !file.Close()) {
            throw Error(ErrorKind::Disk, "cannot unpack " + name + ": " + SystemText(errno)).InFile(m_File.name);
        }
        m_Inputs.files.emplace_back(name, place);
        return true;
    }

    /// Reads on to the next entry, in steps that can be stopped.
    bool PassOver() {
        for (;;) {
            const auto read = Read(m_Bytes, sizeof m_Bytes);
            if (!read) return m_bGoOn;
            if (*read == 0) return true;
        }
    }

    /// The next bytes of the entry; 0 at its end; nothing where it cannot be read, which is told.
    std::optional<std::size_t> Read(unsigned char* bytes, std::size_t capacity) {
        m_Watch.StopIfAsked();
        const la_ssize_t read = archive_read_data(m_pArchive, bytes, capacity);
        m_bGoOn = read != ARCHIVE_FATAL;
        if (read < 0) {
            m_Inputs.unreadable.push_back({.kind = FindingKind::Unreadable,
                                           .files = {m_File.name},
                                           .text = NameOfEntry() + ": cannot be unpacked: " + WhyFailed()});
            return std::nullopt;
        }
        m_nBytes += static_cast<std::uint64_t>(read);
        if (m_nBytes <= m_Options.mostBytes) return static_cast<std::size_t>(read);
        m_bGoOn = false;
        Tell("more than " + std::to_string(m_Options.mostBytes) + " bytes unpacked; the rest was not read");
        return std::nullopt;
    }

    const NamedFile& m_File;
    const InputOptions& m_Options;
    Watch m_Watch;
    Inputs& m_Inputs;
    archive* m_pArchive;
    archive_entry* m_pEntry = nullptr;  // the archive's
    std::size_t m_nEntries = 0;
    std::size_t m_nEncrypted = 0;
    std::uint64_t m_nBytes = 0;
    bool m_bGoOn = true;  // after a read that failed
    unsigned char m_Bytes[kReadSize];
};

}  // namespace

void UnpackArchive(const NamedFile& archive, const InputOptions& options, const Watch& watch, Inputs& inputs) {
    if (inputs.unpacked == nullptr) inputs.unpacked = std::make_shared<TemporaryFolder>(options.temporaryFolder);
    std::make_unique<Unpacking>(archive, options, watch, inputs)->Do();
}

#else

void UnpackArchive(const NamedFile& archive, const InputOptions&, const Watch&, Inputs&) {
    throw Error(ErrorKind::Unsupported, archive.name + ": an archive; this build reads none: unpack it first")
        .InFile(archive.name);
}

#endif

}  // namespace korvane
