#include "ExportFiles.h"

#include "HostError.h"
#include "Paths.h"
#include "TextEncoding.h"

#include <Korvane/Korvane.h>
#include <Korvane/platform/Terminal.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace {

constexpr char kUnfinished[] = ".part";

/// Tells `ExportFiles` what happens to the files of a library writer.
template <class Base>
class WatchedWriter : public Base {
public:
    WatchedWriter(ExportFiles& files, int closed) : m_Files(files), m_Closed(closed) {}

    bool Open(const char* path, const char* mode) override {
        const std::string target = m_Files.Begin(path);
        errno = 0;
        m_bOpen = Base::Open(target.c_str(), mode);
        if (!m_bOpen) m_Files.Fail("cannot create " + target, Reason());
        return m_bOpen;
    }

    unsigned Write(void* bytes, unsigned size, unsigned count) override {
        if (platform::WasInterrupted()) return 0;
        errno = 0;
        const unsigned written = Base::Write(bytes, size, count);
        if (written != count) m_Files.Fail("cannot write " + m_Files.GetNames().back(), Reason());
        return written;
    }

    int Close() override {
        errno = 0;
        const int result = Base::Close();
        if (m_bOpen && result != m_Closed) m_Files.Fail("cannot finish " + m_Files.GetNames().back(), Reason());
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
    int m_Closed;  // what Close returns when all went well
    bool m_bOpen = false;
};

}  // namespace

std::unique_ptr<CFileWriter> ExportFiles::MakeWriter() {
    if (!m_Destination.isFtp) return std::make_unique<WatchedWriter<CFileWriter>>(*this, 0);
    auto writer = std::make_unique<WatchedWriter<CFTPSend>>(*this, 1);
    try {
        writer->Connect(m_Destination.host.c_str(), m_Destination.user.c_str(), m_Destination.password.c_str());
    } catch (const char* reply) {
        StopIfInterrupted();
        const std::string reason = *reply != '\0' ? reply : "no connection";
        throw HostError("cannot log in to " + m_Destination.host + ": " + reason.substr(0, reason.find('\r')));
    }
    return writer;
}

std::string ExportFiles::Begin(const std::string& path) {
    std::string name = path;
    if (m_Destination.isFtp) {
        std::replace(name.begin(), name.end(), '\\', '/');
    } else if (name.starts_with("./")) {
        name.erase(0, 2);
    }
    m_Names.push_back(name);
    return m_Destination.isFtp ? name : name + kUnfinished;
}

void ExportFiles::Fail(const std::string& what, const std::string& reason) {
    if (m_Failure.empty() && !platform::WasInterrupted()) {
        m_Failure = what + (reason.empty() ? "" : ": " + reason);
    }
}

void ExportFiles::Commit() {
    // The header is the first and is named last: a reader that finds it finds the rest, and an image that is in use,
    // which Windows does not let go, costs nothing of what was there before.
    for (std::size_t i = m_Names.size(); !m_Destination.isFtp && i-- > 0;) {
        std::error_code error;
        std::filesystem::rename(PathFromText(m_Names[i] + kUnfinished), PathFromText(m_Names[i]), error);
        if (!error) continue;
        for (std::size_t named = i + 1; named < m_Names.size(); ++named) RemoveFile(m_Names[named]);
        throw HostError("cannot create " + m_Names[i] + ": " + SystemText(error, m_Names[i]));
    }
    m_bCommitted = true;
}

void ExportFiles::Discard() noexcept {
    if (m_bCommitted || m_Destination.isFtp) return;
    for (const std::string& name : m_Names) RemoveFile(name + kUnfinished);
    m_Names.clear();
}

std::string EmptyRemoteFiles(CFileWriter& writer, const ExportFiles& files) {
    bool emptied = true;
    std::vector<std::string> names(files.GetNames());  // opening them adds to the list
    writer.Close();
    for (const std::string& name : names) emptied = writer.Open(name.c_str(), "wb") && writer.Close() == 1 && emptied;
    return emptied ? "its files on the server were emptied" : "its files on the server may be there in part";
}
