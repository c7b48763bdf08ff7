// A connection under the DICOM upper layer, in place of a `DcmSocket`.
#pragma once

#include <cstddef>
#include <functional>

/// A connection that is open: of another address family, or an encrypted one. It is closed when it is destroyed. For one
/// thread at a time.
class Transport {
public:
    Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;
    virtual ~Transport() = default;

    /// Waits until something can be read: 1; 0 when the time is up; -1 on error.
    virtual int Wait(int milliseconds) = 0;
    /// Takes what has arrived: its length; `platform::kNothingReceived`; -1 when the peer has closed, and on error.
    virtual int ReceiveAvailable(void* bytes, int capacity) = 0;
    /// Sends all bytes; false on failure, and when the peer took nothing for as long as `SetTimeout` says. `isStopped`
    /// (null: never) is asked many times a second while the peer takes nothing; true is such a failure.
    virtual bool Send(const void* bytes, std::size_t count, const std::function<bool()>& isStopped) = 0;
    /// Seconds after which a send that does not move is given up; 0: never.
    virtual void SetTimeout(int seconds) = 0;
    /// Tells the peer that nothing more will be sent.
    virtual void ShutDown() = 0;
};
