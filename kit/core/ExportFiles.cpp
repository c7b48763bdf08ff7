#include "ExportFiles.h"

#include "Error.h"
#include "FtpWriter.h"
#include "Paths.h"

#include "export/CFileWriter.h"
#include "platform/FileTree.h"
#include "platform/FolderLock.h"
#include "platform/ReplacingFile.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <optional>
#include <system_error>
#include <thread>
#include <zlib.h>

namespace korvane {

namespace fs = std::filesystem;

namespace {

// The reason of a failure, from the server's last reply. A reply that refuses (4xx, 5xx) is the reason itself; any
// other only says how far the server had come.
std::string ReasonOf(const std::string& reply, const std::string& otherwise) {
    const std::string line = reply.substr(0, reply.find_first_of("\r\n"));
    if (line.empty()) return otherwise;
    return line[0] == '4' || line[0] == '5' ? line : otherwise + ", after " + line;
}

// Writes nothing, but fails where the folder of a local file is missing.
class DryWriter : public CFileWriter {
public:
    DryWriter(bool local, bool makesFolders) : m_bLocal(local), m_bMakesFolders(makesFolders) {}

    bool Open(const char* path, const char*) override {
        if (!m_bLocal) return true;
        std::error_code error;
        fs::path folder = fs::absolute(PathFromText(path), error).parent_path();
        while (m_bMakesFolders && !fs::exists(folder, error) && folder.has_relative_path())
            folder = folder.parent_path();
        if (fs::is_directory(folder / ".", error)) return true;
        errno = ENOENT;
        return false;
    }
    unsigned Write(void*, unsigned, unsigned count) override { return count; }

private:
    bool m_bLocal;
    bool m_bMakesFolders;
};

// Keeps the old files that are replaced by several new ones until all of the new ones have their names, so that a
// failure in the middle can put the old ones back.
class ReplacedFiles {
public:
    explicit ReplacedFiles(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            std::error_code error;
            if (!fs::is_regular_file(PathFromText(name), error)) continue;
            platform::ReplacingFile aside;  // only for a name that no file has
            if (!aside.Reserve(name)) continue;
            const std::string other = aside.GetUnfinished();
            aside.Discard();
            // The old file is kept by a second name where that name can be removed while the file is in use (see
            // `RemovesOpenFiles`).
            const bool canLink = platform::RemovesOpenFiles();
            if (canLink) fs::create_hard_link(PathFromText(name), PathFromText(other), error);
            if (error || !canLink) fs::copy_file(PathFromText(name), PathFromText(other), error);
            if (!error) m_Kept.emplace_back(name, other);
        }
    }
    ~ReplacedFiles() {
        for (const auto& [name, other] : m_Kept) platform::RemoveFile(other.c_str());
    }
    ReplacedFiles(const ReplacedFiles&) = delete;
    ReplacedFiles& operator=(const ReplacedFiles&) = delete;

    // Puts the old file of a name back; false where there was none.
    bool Restore(const std::string& name) {
        const auto found =
            std::find_if(m_Kept.begin(), m_Kept.end(), [&](const auto& kept) { return kept.first == name; });
        if (found == m_Kept.end()) return false;
        std::error_code error;
        fs::rename(PathFromText(found->second), PathFromText(name), error);
        if (!error) m_Kept.erase(found);
        return !error;
    }

private:
    std::vector<std::pair<std::string, std::string>> m_Kept;  // the name of an old file, and the path where it is kept
};

// Two processes that give files the same names at the same moment would leave the header of one beside the image of the
// other. Who holds the folder's lock for longer, as a receiver does, makes no such files: it is not waited for.
class FilesBeingNamed {
public:
    explicit FilesBeingNamed(const std::string& file) {
        constexpr auto kLook = std::chrono::milliseconds(5);
        constexpr int kLooks = 100;
        const std::string folder = TextFromPath(PathFromText(file).parent_path());
        for (int look = 0; look < kLooks; ++look) {
            if (m_Lock.TakeAlone(folder.empty() ? "." : folder) || errno != EBUSY) return;
            std::this_thread::sleep_for(kLook);
        }
    }

private:
    platform::FolderLock m_Lock;
};

// What the operations of the two writers of the library return on success, for they differ.
struct WriterForm {
    int closed = 0;
    bool countsBytes = false;  ///< `Write` returns bytes, not items
};

// A writer of the library that reports all that happens to its files to `ExportFiles`.
template <class Base>
class WatchedWriter : public Base {
public:
    template <class... Arguments>
    WatchedWriter(ExportFiles& files, WriterForm form, Arguments... arguments)
        : Base(arguments...), m_Files(files), m_Form(form) {}

    bool Open(const char* path, const char* mode) override {
        const std::string target = m_Files.Begin(path);
        if (target.empty()) return false;
        errno = 0;
        m_bOpen = Base::Open(target.c_str(), mode);
        if (!m_bOpen) m_Files.Abandon(Reason());
        return m_bOpen;
    }

    unsigned Write(void* bytes, unsigned size, unsigned count) override {
        if (m_Files.IsStopped()) return 0;
        errno = 0;
        const unsigned written = Base::Write(bytes, size, count);
        if (written != (m_Form.countsBytes ? size * count : count)) {
            if (m_Form.countsBytes) Base::Close();  // the server gives its reason only when the file is closed
            m_Files.Fail("cannot write " + m_Files.GetOutputs().back().name, Reason());
        } else {
            m_Files.Count(bytes, std::size_t{size} * count);
        }
        return written;
    }

    int Print(const char* format, ...) override {
        std::va_list arguments;
        va_start(arguments, format);
        std::va_list again;
        va_copy(again, arguments);
        const int length = std::vsnprintf(nullptr, 0, format, arguments);
        va_end(arguments);
        std::string text(static_cast<std::size_t>(std::max(length, 0)) + 1, '\0');
        std::vsnprintf(text.data(), text.size(), format, again);
        va_end(again);
        const auto count = static_cast<unsigned>(text.size() - 1);
        return Write(text.data(), 1, count) == count ? length : -1;
    }

    int Close() override {
        errno = 0;
        const int result = Base::Close();
        if (m_bOpen && result != m_Form.closed) {
            m_Files.Fail("cannot finish " + m_Files.GetOutputs().back().name, Reason());
        }
        m_bOpen = false;
        return result;
    }

private:
    std::string Reason() {
        const std::string text = this->StrError();
        return m_Form.countsBytes ? ReasonOf(text, "connection lost") : text;
    }

    ExportFiles& m_Files;
    WriterForm m_Form;
    bool m_bOpen = false;
};

}  // namespace

ExportFiles::ExportFiles(Destination destination, const Watch& watch)
    : m_Destination(std::move(destination)), m_Watch(watch) {}

ExportFiles::~ExportFiles() = default;

std::unique_ptr<CFileWriter> ExportFiles::MakeWriter() {
    if (m_bDryRun)
        return std::make_unique<WatchedWriter<DryWriter>>(*this, WriterForm{}, !m_Destination.isFtp, m_bFolders);
    if (!m_Destination.isFtp) return std::make_unique<WatchedWriter<CFileWriter>>(*this, WriterForm{});
    auto writer = std::make_unique<WatchedWriter<FtpWriter>>(*this, WriterForm{1, true}, m_Watch.GetStopQuestion());
    if (!writer->Connect(m_Destination.host, m_Destination.user, m_Destination.password)) {
        m_Watch.StopIfAsked();
        const std::string reply = writer->StrError();
        throw Error(ErrorKind::Refused,
                    "cannot log in to " + m_Destination.host + ": " +
                        WithoutPassword(ReasonOf(reply, reply.empty() ? "no connection" : "connection lost")));
    }
    return writer;
}

// Blots out the password, which a server's reply may repeat.
std::string ExportFiles::WithoutPassword(const std::string& reply) const {
    std::string text = reply;
    const std::string& password = m_Destination.password;
    for (std::size_t at = 0; !password.empty() && (at = text.find(password, at)) != std::string::npos;) {
        text.replace(at, password.size(), "***");
        at += 3;
    }
    return text;
}

std::string ExportFiles::NameOf(const std::string& path) const {
    const std::string folder = m_Destination.GetFolder();
    if (!path.starts_with(folder) || path.find_first_of("/\\", folder.size()) != folder.size()) return path;
    // Some exporters put a backslash between folder and name.
    const std::string file = path.substr(folder.size() + 1);
    return m_Destination.directory == "." ? file : m_Destination.directory + "/" + file;
}

std::string ExportFiles::Begin(const std::string& path) {
    ExportOutput output{NameOf(path)};
    if (!m_Destination.isFtp) {
        std::error_code error;
        const fs::file_status there = fs::status(PathFromText(output.name), error);
        const bool isTaken = m_bKeep && platform::FileExists(output.name.c_str());
        output.isDevice = fs::exists(there) && !fs::is_regular_file(there);
        if (isTaken || fs::is_directory(there)) {
            Fail("cannot create " + output.name, SystemText(isTaken ? EEXIST : EISDIR));
            return {};
        }
        if (!m_Reserved.empty() && fs::absolute(PathFromText(output.name)).lexically_normal() == m_Reserved) {
            Fail("cannot create " + output.name, "this is to be the report");
            return {};
        }
    }
    if (m_bFolders && !m_bDryRun && !m_Destination.isFtp && !MakeFolderOf(output.name)) return {};
    std::unique_ptr<platform::ReplacingFile> file;
    if (!m_Destination.isFtp && !m_bDryRun && !output.isDevice) {
        file = std::make_unique<platform::ReplacingFile>();
        if (!file->Reserve(output.name)) {
            Fail("cannot create " + output.name, SystemText(errno));
            return {};
        }
    }
    std::string writtenAs = file != nullptr ? file->GetUnfinished() : output.name;
    m_Outputs.push_back(output);
    m_Unfinished.push_back(std::move(file));
    return writtenAs;
}

bool ExportFiles::MakeFolderOf(const std::string& path) {
    const std::string folder = TextFromPath(PathFromText(path).parent_path());
    try {
        if (!folder.empty()) MakeDirectory(folder);
        return true;
    } catch (const Error& error) {
        Fail(error.what(), "");
        return false;
    }
}

void ExportFiles::Reserve(const std::string& path) {
    m_Reserved = fs::absolute(PathFromText(path)).lexically_normal();
}

void ExportFiles::Count(const void* bytes, std::size_t count) {
    ExportOutput& output = m_Outputs.back();
    output.size += count;
    if (m_bChecksums) {
        output.crc = static_cast<std::uint32_t>(
            crc32_z(output.crc, static_cast<const Bytef*>(bytes), static_cast<z_size_t>(count)));
    }
}

void ExportFiles::Fail(const std::string& what, const std::string& reason) {
    if (m_Failure.empty() && !IsStopped()) {
        m_Failure = what + (reason.empty() ? "" : ": " + WithoutPassword(reason));
    }
}

void ExportFiles::ThrowFailure() const {
    m_Watch.StopIfAsked();
    throw Error(m_Destination.isFtp ? ErrorKind::Refused : ErrorKind::Disk, m_Failure);
}

void ExportFiles::Abandon(const std::string& reason) {
    Fail("cannot create " + m_Outputs.back().name, reason);
    m_Outputs.pop_back();
    m_Unfinished.pop_back();
}

std::vector<std::string> ExportFiles::GetNames() const {
    std::vector<std::string> names;
    for (const ExportOutput& output : m_Outputs) names.push_back(output.name);
    return names;
}

void ExportFiles::Commit() {
    using Existing = platform::ReplacingFile::Existing;
    std::optional<FilesBeingNamed> alone;
    if (m_Outputs.size() > 1 && m_Unfinished[0] != nullptr) alone.emplace(m_Outputs[0].name);
    ReplacedFiles replaced(m_Outputs.size() > 1 && !m_bKeep ? GetNames() : std::vector<std::string>());
    // The first file is the header, and it gets its name last, so that a reader who finds it finds the others. When an
    // image is in use, which Windows does not let replace, nothing has been replaced yet.
    for (std::size_t i = m_Outputs.size(); i-- > 0;) {
        if (m_Unfinished[i] == nullptr || m_Unfinished[i]->Commit(m_bKeep ? Existing::Refuse : Existing::Replace))
            continue;
        const std::error_code error(errno, std::generic_category());
        for (std::size_t done = i + 1; done < m_Outputs.size(); ++done) {
            const std::string& written = m_Outputs[done].name;
            if (m_Unfinished[done] != nullptr && !replaced.Restore(written)) RemoveFile(written);
        }
        const std::string& name = m_Outputs[i].name;
        throw Error(ErrorKind::Disk, "cannot create " + name + ": " + SystemText(error, name)).InFile(name);
    }
    m_Unfinished.clear();
}

void ExportFiles::Discard() noexcept {
    if (m_Unfinished.empty()) return;  // all files have their names already
    m_Unfinished.clear();
    if (!m_bDryRun && !m_Destination.isFtp) m_Outputs.clear();
}

std::string EmptyRemoteFiles(CFileWriter& writer, const ExportFiles& files) {
    bool emptied = true;
    const std::vector<std::string> names = files.GetNames();  // opening them adds to the list
    writer.Close();
    for (const std::string& name : names) emptied = writer.Open(name.c_str(), "wb") && writer.Close() == 1 && emptied;
    return emptied ? "its files on the server were emptied" : "its files on the server may be there in part";
}

}  // namespace korvane
