#include "CVolumeExport.h"

#include "CFTPSend.h"
#include "CFileWriter.h"
#include "base/DestinationUrl.h"
#include "base/Layout.h"
#include "volume/CPercent.h"
#include "volume/CVolume.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

namespace {

constexpr char kBadUrl[] = "Bad URL: ftp:user%pwd@host/path/filename | file:path/filename";

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
    // What both share already keeps its owner: assigning a copy back to its source must not make the source believe
    // that the volume or the writer belongs to somebody else.
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
        std::string_view rest(url == nullptr ? "" : url);
        const std::string_view scheme = platform::TakeScheme(rest);
        if (scheme == "ftp") {
            return SaveFtp(std::string(rest));
        }
        if (scheme == "file") {
            return SaveFile(std::string(rest));
        }
    } catch (...) {
        // An exporter's Save may throw anything; the header promises this one text for all of it.
    }
    m_Error = kBadUrl;
    return false;
}

bool CVolumeExport::SaveFile(const std::string& rest) {
    const platform::DestinationUrl target = platform::SplitFileUrl(rest, "\\");
    return Save(target.directory.c_str(), target.name.c_str());
}

bool CVolumeExport::SaveFtp(const std::string& rest) {
    auto sender = std::make_unique<CFTPSend>();
    const std::optional<platform::DestinationUrl> target = platform::SplitFtpUrl(rest);
    if (!target) {
        throw 1;
    }
    try {
        sender->Connect(target->host.c_str(), target->user.c_str(), target->password.c_str());
    } catch (...) {
        m_Error = sender->StrError();
        return false;
    }
    const CFTPSend* const installed = sender.get();
    SetFileWriter(sender.release());
    const bool saved = Save(target->directory.c_str(), target->name.c_str());
    // The exporters ignore the result of Close, so a file that the server did not confirm is only known to the writer.
    return saved && !(m_pWriter == installed && installed->HasFailed());
}
