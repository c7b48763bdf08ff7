#include "CFTPSend.h"

#include "FtpWatch.h"
#include "base/Layout.h"
#include "platform/PerThread.h"
#include "platform/Signals.h"

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ftplib.h>
#include <limits>
#include <mutex>

namespace {

// The most bytes that one call of ftplib sends: few enough that a slow connection takes them within the time limit.
constexpr int kBlock = 65536;

char g_NoReply[] = "";

struct Reply {
    char text[512];
};

// Throws a server's reply as a `char*`. The text is copied, because the connection whose buffer holds it may be closed
// by then; the copy lasts until the thread throws another one.
[[noreturn]] void ThrowReply(const char* reply) {
    char(&text)[512] = platform::PerThread<Reply>::Get().text;
    std::snprintf(text, sizeof text, "%s", reply);
    throw static_cast<char*>(text);
}

// Calls FtpInit once in the process, when the first object is made; other threads wait until it is done.
void StartLibrary() {
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    if (!CFTPSend::Init) {
        FtpInit();
        CFTPSend::Init = true;
    }
}

}  // namespace

bool CFTPSend::Init = false;
int CFTPSend::Timeout = 60'000;

// Lives as long as one call of ftplib: keeps its time limit, and keeps SIGPIPE from the host.
class CFTPSend::Call {
public:
    explicit Call(const CFTPSend& sender, NetBuf* data = nullptr) : m_pWatch(sender.m_pWatch.get()) {
        if (m_pWatch != nullptr) {
            m_pWatch->Begin(data);
        }
    }
    ~Call() {
        if (m_pWatch != nullptr) {
            m_pWatch->End();
        }
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

private:
    korvane_detail::FtpWatch* const m_pWatch;
    const platform::BlockBrokenPipe m_Guard;
};

CFTPSend::CFTPSend()
    : m_pControl(nullptr), m_pData(nullptr), m_bControlBorrowed(false), m_bDataBorrowed(false), m_bFailed(false) {
    StartLibrary();
}

CFTPSend::CFTPSend(const CFTPSend& source)
    : CFileWriter(source), m_pControl(source.m_pControl), m_pData(source.m_pData),
      m_bControlBorrowed(source.m_pControl != nullptr), m_bDataBorrowed(source.m_pData != nullptr),
      m_bFailed(source.m_bFailed), m_pWatch(source.m_pWatch) {}

CFTPSend& CFTPSend::operator=(const CFTPSend& source) {
    if (this == &source) {
        return *this;
    }
    CFileWriter::operator=(source);
    if (m_pData != source.m_pData) {
        CFTPSend::Close();
        m_pData = source.m_pData;
        m_bDataBorrowed = m_pData != nullptr;
    }
    if (m_pControl != source.m_pControl) {
        EndSession();
        m_pControl = source.m_pControl;
        m_bControlBorrowed = m_pControl != nullptr;
        m_pWatch = source.m_pWatch;
    }
    m_bFailed = source.m_bFailed;
    return *this;
}

CFTPSend::~CFTPSend() {
    static_assert(platform::LieInOrder({offsetof(CFTPSend, m_pControl), offsetof(CFTPSend, m_pData)}));
    CFTPSend::Close();
    EndSession();
}

bool CFTPSend::HasSession() const {
    return m_pWatch != nullptr && !m_pWatch->IsLost();
}

void CFTPSend::EndSession() {
    if (HasSession() && !m_bControlBorrowed) {
        const Call call(*this);
        FtpQuit(m_pControl);
    }
    m_pControl = nullptr;
    m_pWatch.reset();
    m_bControlBorrowed = false;
}

void CFTPSend::Connect(const char* host, const char* user, const char* password) {
    CFTPSend::Close();
    EndSession();
    m_bFailed = false;
    m_pControl = korvane_detail::ConnectWithin(host, Timeout);
    if (m_pControl == nullptr) {
        ThrowReply(StrError());
    }
    m_pWatch = std::make_shared<korvane_detail::FtpWatch>(m_pControl, Timeout);
    const Call call(*this);
    if (FtpLogin(user, password, m_pControl) == 0) {
        ThrowReply(StrError());
    }
}

void CFTPSend::ChDir(const char* dir) {
    const Call call(*this);
    if (!HasSession() || FtpChdir(dir, m_pControl) == 0) {
        ThrowReply(CFTPSend::StrError());
    }
}

bool CFTPSend::Open(const char* path, const char* mode) {
    if (m_pData != nullptr) {
        Close();
        CFTPSend::Close();  // a derived class's Close may leave it open
    }
    if (!HasSession()) {
        return false;
    }
    const char kind = mode[0] != '\0' && mode[1] == 't' ? FTPLIB_ASCII : FTPLIB_IMAGE;
    m_pData = m_pWatch->OpenRemote(path, kind);
    return m_pData != nullptr;
}

int CFTPSend::Close() {
    int result = 0;
    if (m_pData != nullptr && !m_bDataBorrowed) {
        const Call call(*this);
        result = HasSession() ? FtpClose(m_pData) : 0;
        m_bFailed |= result == 0;
    }
    m_pData = nullptr;
    m_bDataBorrowed = false;
    return result;
}

unsigned CFTPSend::Write(void* buf, unsigned size, unsigned count) {
    const unsigned long long bytes = static_cast<unsigned long long>(size) * count;
    if (bytes > static_cast<unsigned long long>(std::numeric_limits<int>::max())) {
        return static_cast<unsigned>(-1);
    }
    return static_cast<unsigned>(Send(buf, static_cast<int>(bytes)));
}

int CFTPSend::Print(const char* format, ...) {
    char text[512];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return length < 0 ? -1 : Send(text, static_cast<int>(std::strlen(text)));
}

unsigned CFTPSend::Seek(unsigned long offset) {
    const char zero = 0;
    for (unsigned long i = 0; i < offset; ++i) {
        if (Send(&zero, 1) != 1) {
            break;  // the connection is broken; `offset` is returned all the same, as the header says
        }
    }
    return static_cast<unsigned>(offset);
}

char* CFTPSend::StrError() {
    char* const reply = HasSession() ? FtpLastResponse(m_pControl) : nullptr;
    return reply == nullptr ? g_NoReply : reply;
}

int CFTPSend::Send(const void* bytes, int count) {
    if (m_pData == nullptr || !HasSession()) {
        return -1;
    }
    const auto* const text = static_cast<const char*>(bytes);
    int sent = 0;
    do {
        int block = std::min(count - sent, kBlock);
        if (sent + block < count && text[sent + block - 1] == '\r') {
            // A line feed belongs into the same call as its carriage return: ftplib adds another one otherwise.
            --block;
        }
        const Call call(*this, m_pData);
        const int result = FtpWrite(text + sent, block, m_pData);
        if (result != block) {
            m_bFailed = true;
            return result > 0 ? sent + result : result;
        }
        sent += block;
    } while (sent < count);
    return sent;
}
