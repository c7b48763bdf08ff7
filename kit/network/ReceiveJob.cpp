#include "ReceiveJob.h"

#include "../core/HostError.h"
#include "../core/Paths.h"
#include "../dataset/InflateBuffer.h"

#include "host/terminal/Terminal.h"

#include <cerrno>

namespace korvane {

namespace {

using Event = DcmService::Event;

constexpr std::size_t kPieceBytes = 64 * 1024;
constexpr int kLook = 100;  // milliseconds from one look for Ctrl-C to the next
constexpr int kLongestLook = 20;

/// Files into the folder, with the system's reason where that does not work.
class ReceivedFiles : public FolderSink {
public:
    ReceivedFiles(const ReceiveOptions& options, ReceiveObserver& observer)
        : FolderSink(options.folder, options.replace ? Existing::Replace : Existing::KeepBoth), m_Observer(observer) {}

    std::uint16_t Begin(const StorageRequest& request) override {
        m_Request = request;
        m_Why.clear();
        errno = 0;
        return Explain(FolderSink::Begin(request));
    }
    std::uint16_t Write(const void* bytes, std::size_t count) override {
        errno = 0;
        return Explain(FolderSink::Write(bytes, count));
    }
    std::uint16_t End() override {
        errno = 0;
        return Explain(FolderSink::End());
    }
    void Answered(const StorageRequest& request, std::uint16_t status, const std::string& reason) override {
        const bool stored = IsStored(status);
        ++(stored ? m_Stored : m_Refused);
        m_Observer.OnFile(request, stored ? GetPath() : "", status,
                          stored ? "" : DimseStatusText(status) + ": " + reason + m_Why);
    }

    std::size_t m_Stored = 0;
    std::size_t m_Refused = 0;

protected:
    /// A deflated data set is stored as it came. What is in it has not been looked at on the way.
    std::uint16_t Check(const std::string& path, std::size_t head) override {
        if (m_Request.transferSyntax != kDeflatedUid) return kStatusSuccess;
        FileInputBuffer file;
        if (!file.Open(path.c_str()) || !file.Skip(head)) return kStatusOutOfResources;
        InflateBuffer inflated(file);
        DataSetWalker walker(kExplicitLittleEndian);
        std::vector<unsigned char> piece(kPieceBytes);
        while (const std::size_t count = inflated.ReadSome(piece.data(), piece.size())) {
            if (!walker.Feed(piece.data(), count)) break;
        }
        if (platform::WasInterrupted()) return kStatusOutOfResources;  // which ends the reading of files
        return inflated.IsWhole() ? CheckDataSet(walker, m_Request) : std::uint16_t{kStatusCannotUnderstand};
    }

private:
    std::uint16_t Explain(std::uint16_t status) {
        if (status == kStatusOutOfResources && errno != 0) m_Why = ": " + SystemText(errno);
        return status;
    }

    ReceiveObserver& m_Observer;
    StorageRequest m_Request;
    std::string m_Why;
};

class Receiver {
public:
    Receiver(const ReceiveOptions& options, ReceiveObserver& observer)
        : m_Options(options), m_Observer(observer), m_Files(options, observer), m_Provider(m_Service, m_Files) {
        m_Policy.aeTitle = options.ownTitle;
        m_Policy.callingTitles = options.callers;
        m_Policy.acceptsSyntax = [](std::string_view syntax) {
            return IsStorableSyntax(syntax) || syntax == kDeflatedUid;
        };
        m_Service.SetStopCheck([this] { return !GoesOn(0); });
        m_Service.SetArtim(options.requestTimeout);
        m_Service.GetSocket().SetTimeout(options.timeout);
    }

    ReceiveReport Run() {
        MakeDirectory(m_Options.folder);
        DcmSocket listener;
        if (listener.Listen(m_Options.port, m_Options.loopbackOnly) == 0) {
            const std::error_code reason(listener.GetLastError(), std::system_category());
            throw HostError("cannot listen on port " + std::to_string(m_Options.port) + ": " + SystemText(reason, ""));
        }
        m_Observer.OnListening(listener.GetListeningPort());
        while (GoesOn(kLongestLook) && (m_Options.count == 0 || m_Report.associations < m_Options.count)) {
            if (listener.Accept(m_Service.GetSocket(), kLook) != 0) Serve();
        }
        m_Report.stored = m_Files.m_Stored;
        m_Report.refused = m_Files.m_Refused;
        return m_Report;
    }

private:
    bool GoesOn(int milliseconds) { return m_Observer.OnLook(milliseconds) && !platform::WasInterrupted(); }

    void Serve() {
        ReceiveObserver::Association association;
        association.address = platform::AddressText(m_Service.GetSocket().GetPeer());
        const std::size_t stored = m_Files.m_Stored;
        const std::size_t refused = m_Files.m_Refused;
        m_Service.AAssociateRQ::m_CallingAETitle.clear();  // stays so when no request comes
        association.end = m_Provider.Serve(m_Policy);
        if (association.end == Event::Stopped && platform::WasInterrupted()) throw Interrupted();
        association.caller = m_Service.GetCallingTitle();
        association.error = m_Service.GetError();
        association.stored = m_Files.m_Stored - stored;
        association.refused = m_Files.m_Refused - refused;
        const bool wasAgreed = association.end != Event::Rejected && !association.caller.empty();
        if (wasAgreed) {
            ++m_Report.associations;
            if (association.end != Event::Released) ++m_Report.broken;
        }
        m_Observer.OnEnd(association);
    }

    const ReceiveOptions& m_Options;
    ReceiveObserver& m_Observer;
    DcmService m_Service;
    ReceivedFiles m_Files;
    StorageProvider m_Provider;
    AcceptPolicy m_Policy;
    ReceiveReport m_Report;
};

}  // namespace

ReceiveReport ReceiveFiles(const ReceiveOptions& options, ReceiveObserver& observer) {
    return Receiver(options, observer).Run();
}

}  // namespace korvane
