#include "CVolumeExport.h"

#include "base/Layout.h"

#include "CFTPSend.h"
#include "CFileWriter.h"
#include "volume/CPercent.h"
#include "volume/CVolume.h"

#include <algorithm>
#include <cstddef>
#include <memory>

namespace {

constexpr char kBadUrl[] = "Bad URL: ftp:user%pwd@host/path/filename | file:path/filename";

struct FtpTarget {
    std::string user;
    std::string password;
    std::string host;
    std::string path;
    std::string name;
};

/// Cuts the text before the next `separator` off the front of `rest`; throws where there is none.
std::string CutTo(char separator, std::string& rest) {
    const std::size_t end = rest.find(separator);
    if (end == std::string::npos) {
        throw 1;
    }
    std::string part = rest.substr(0, end);
    rest.erase(0, end + 1);
    return part;
}

FtpTarget ParseFtpTarget(std::string rest) {
    // A line end would smuggle commands of its own into the control connection.
    if (std::any_of(rest.begin(), rest.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; })) {
        throw 1;
    }
    FtpTarget target;
    target.user = CutTo('%', rest);
    target.password = CutTo('@', rest);
    target.host = CutTo('/', rest);
    const std::size_t last = rest.rfind('/');
    if (last != std::string::npos) {
        target.path = rest.substr(0, last);
        rest.erase(0, last + 1);
    }
    target.name = rest;
    return target;
}

}  // namespace

CVolumeExport::CVolumeExport()
    : m_pVolume(nullptr), m_pCallback(nullptr), m_pWriter(new CFileWriter), m_bVolumeBorrowed(false),
      m_bWriterBorrowed(false) {}

CVolumeExport::CVolumeExport(const CVolumeExport& source)
    : m_pVolume(source.m_pVolume), m_pCallback(source.m_pCallback), m_pWriter(source.m_pWriter),
      m_Error(source.m_Error), m_bVolumeBorrowed(true), m_bWriterBorrowed(true) {}

CVolumeExport& CVolumeExport::operator=(const CVolumeExport& source) {
    if (this == &source) {
        return *this;
    }
    // What both share already keeps its owner: assigning a copy back to its source must not turn that into a borrower.
    if (m_pVolume != source.m_pVolume) {
        ReleaseVolume();
        m_pVolume = source.m_pVolume;
        m_bVolumeBorrowed = true;
    }
    if (m_pWriter != source.m_pWriter) {
        ReleaseWriter();
        m_pWriter = source.m_pWriter;
        m_bWriterBorrowed = true;
    }
    m_pCallback = source.m_pCallback;
    m_Error = source.m_Error;
    return *this;
}

CVolumeExport::~CVolumeExport() {
    static_assert(platform::LieInOrder({offsetof(CVolumeExport, m_pVolume), offsetof(CVolumeExport, m_pCallback),
                                        offsetof(CVolumeExport, m_pWriter), offsetof(CVolumeExport, m_Error)}));
    ReleaseVolume();
    ReleaseWriter();
}

void CVolumeExport::ReleaseVolume() {
    if (m_pVolume != nullptr && !m_bVolumeBorrowed) {
        m_pVolume->Delete();
    }
    m_pVolume = nullptr;
    m_bVolumeBorrowed = false;
}

void CVolumeExport::ReleaseWriter() {
    if (!m_bWriterBorrowed) {
        delete m_pWriter;
    }
    m_pWriter = nullptr;
    m_bWriterBorrowed = false;
}

void CVolumeExport::SetFileWriter(CFileWriter* writer) {
    if (m_pWriter != writer) {
        ReleaseWriter();
        m_pWriter = writer;
    }
}

void CVolumeExport::TakeReference(CVolume* volume) {
    if (volume != nullptr) {
        volume->AddRef();  // before the old one is dropped: it may be the same
    }
    AdoptReference(volume);
}

void CVolumeExport::AdoptReference(CVolume* volume) {
    ReleaseVolume();
    m_pVolume = volume;
}

bool CVolumeExport::AdvanceProgress() {
    return m_pCallback != nullptr && m_pCallback->FireProgress(1);
}

void* CVolumeExport::PlanePixels(int plane) {
    void* const pixels = m_pVolume->GetPlane(plane)->m_pData;
    if (pixels == nullptr) {
        throw 1;
    }
    return pixels;
}

bool CVolumeExport::SaveUrl(const char* url) {
    try {
        std::string rest(url == nullptr ? "" : url);
        const std::string scheme = CutTo(':', rest);
        if (scheme == "ftp") {
            return SaveFtp(rest);
        }
        if (scheme == "file") {
            return SaveFile(rest);
        }
    } catch (...) {
        // Deliberately broad: whatever an exporter throws is reported as a bad URL too.
    }
    m_Error = kBadUrl;
    return false;
}

bool CVolumeExport::SaveFile(const std::string& rest) {
    const std::size_t last = rest.rfind('\\');
    if (last == std::string::npos) {
        return Save("", rest.c_str());
    }
    return Save(rest.substr(0, last).c_str(), rest.c_str() + last + 1);
}

bool CVolumeExport::SaveFtp(const std::string& rest) {
    auto sender = std::make_unique<CFTPSend>();
    const FtpTarget target = ParseFtpTarget(rest);
    try {
        sender->Connect(target.host.c_str(), target.user.c_str(), target.password.c_str());
    } catch (...) {
        m_Error = sender->StrError();
        return false;
    }
    const CFTPSend* const installed = sender.get();
    SetFileWriter(sender.release());
    const bool saved = Save(target.path.c_str(), target.name.c_str());
    // A format does not notice a file that the server refused to finish.
    return saved && !(m_pWriter == installed && installed->HasFailed());
}
