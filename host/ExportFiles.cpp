#include "ExportFiles.h"

#include "HostError.h"
#include "Paths.h"
#include "TextEncoding.h"

#include <Korvane/Korvane.h>
#include <Korvane/platform/File.h>
#include <Korvane/platform/Terminal.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <system_error>
#include <zlib.h>

namespace {

constexpr char kUnfinished[] = ".part";

/// Writes nothing; fails where a local file could not be made for want of its folder.
class DryWriter : public CFileWriter {
public:
    explicit DryWriter(bool local) : m_bLocal(local) {}

    bool Open(const char* path, const char*) override {
        std::error_code error;
        if (!m_bLocal || std::filesystem::is_directory(PathFromText(path).parent_path() / ".", error)) return true;
        errno = ENOENT;
        return false;
    }
    unsigned Write(void*, unsigned, unsigned count) override { return count; }

private:
    bool m_bLocal;
};

/// What the operations of a library writer return when all went well.
struct WriterForm {
    int closed = 0;
    bool countsBytes = false;  ///< `Write` returns bytes, not items
};

/// Tells `ExportFiles` what happens to the files of a library writer.
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
        if (!m_bOpen) m_Files.Fail("cannot create " + target, Reason());
        return m_bOpen;
    }

    unsigned Write(void* bytes, unsigned size, unsigned count) override {
        if (platform::WasInterrupted()) return 0;
        errno = 0;
        const unsigned written = Base::Write(bytes, size, count);
        if (written != (m_Form.countsBytes ? size * count : count)) {
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
        std::string text = this->StrError();
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
        return text;
    }

    ExportFiles& m_Files;
    WriterForm m_Form;
    bool m_bOpen = false;
};

}  // namespace

std::unique_ptr<CFileWriter> ExportFiles::MakeWriter() {
    if (m_bDryRun) return std::make_unique<WatchedWriter<DryWriter>>(*this, WriterForm{}, !m_Destination.isFtp);
    if (!m_Destination.isFtp) return std::make_unique<WatchedWriter<CFileWriter>>(*this, WriterForm{});
    m_pGuard = std::make_unique<ServerGuard>();
    auto writer = std::make_unique<WatchedWriter<CFTPSend>>(*this, WriterForm{1, true});
    try {
        writer->Connect(m_Destination.host.c_str(), m_Destination.user.c_str(), m_Destination.password.c_str());
    } catch (const char* reply) {
        StopIfInterrupted();
        const std::string reason = *reply != '\0' ? reply : "no connection";
        throw HostError("cannot log in to " + m_Destination.host + ": " +
                        ReasonOf(reason.substr(0, reason.find('\r'))));
    }
    return writer;
}

/// A server may repeat what it was sent.
std::string ExportFiles::ReasonOf(const std::string& reply) const {
    std::string text = reply;
    const std::string& password = m_Destination.password;
    for (std::size_t at = 0; !password.empty() && (at = text.find(password, at)) != std::string::npos;) {
        text.replace(at, password.size(), "***");
        at += 3;
    }
    return text;
}

std::string ExportFiles::Begin(const std::string& path) {
    std::string name = path;
    // Some exporters put a backslash between folder and name.
    const std::size_t separator = m_Destination.directory.size();
    if (m_Destination.isFtp) {
        std::replace(name.begin(), name.end(), '\\', '/');
    } else if (name.starts_with(m_Destination.directory) && name.size() > separator && name[separator] == '\\') {
        name[separator] = '/';
    }
    if (name.starts_with("./")) name.erase(0, 2);
    if (m_bKeep && !m_Destination.isFtp && platform::FileExists(name.c_str())) {
        Fail("cannot create " + name, SystemText(EEXIST));
        return {};
    }
    m_Outputs.push_back({name, 0, 0});
    if (m_pGuard) m_pGuard->SetBegun();
    return m_Destination.isFtp || m_bDryRun ? name : name + kUnfinished;
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
    if (m_Failure.empty() && !platform::WasInterrupted()) {
        m_Failure = what + (reason.empty() ? "" : ": " + ReasonOf(reason));
    }
}

std::vector<std::string> ExportFiles::GetNames() const {
    std::vector<std::string> names;
    for (const ExportOutput& output : m_Outputs) names.push_back(output.name);
    return names;
}

void ExportFiles::Commit() {
    const bool named = m_Destination.isFtp || m_bDryRun;
    // The header is the first and is named last: a reader that finds it finds the rest, and an image that is in use,
    // which Windows does not let go, costs nothing of what was there before.
    for (std::size_t i = m_Outputs.size(); !named && i-- > 0;) {
        const std::string& name = m_Outputs[i].name;
        std::error_code error;
        if (m_bKeep && platform::FileExists(name.c_str())) {
            error = std::make_error_code(std::errc::file_exists);  // made by somebody in the meantime
        } else {
            std::filesystem::rename(PathFromText(name + kUnfinished), PathFromText(name), error);
        }
        if (!error) continue;
        for (std::size_t done = i + 1; done < m_Outputs.size(); ++done) RemoveFile(m_Outputs[done].name);
        throw HostError("cannot create " + name + ": " + SystemText(error, name));
    }
    m_bCommitted = true;
}

void ExportFiles::Discard() noexcept {
    if (m_bCommitted || m_bDryRun || m_Destination.isFtp) return;
    for (const ExportOutput& output : m_Outputs) RemoveFile(output.name + kUnfinished);
    m_Outputs.clear();
}

std::string EmptyRemoteFiles(CFileWriter& writer, const ExportFiles& files) {
    bool emptied = true;
    const std::vector<std::string> names = files.GetNames();  // opening them adds to the list
    writer.Close();
    for (const std::string& name : names) emptied = writer.Open(name.c_str(), "wb") && writer.Close() == 1 && emptied;
    return emptied ? "its files on the server were emptied" : "its files on the server may be there in part";
}
