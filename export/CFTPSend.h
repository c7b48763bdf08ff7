// Uploads an exporter's files to an FTP server.
#pragma once

#include "CFileWriter.h"

struct NetBuf;

/// A writer that uploads through FTP (RFC 959, passive mode) instead of writing to disk. `Connect` first; then each
/// `Open` ... `Close` makes one remote file. Every call waits for the server. A connection that breaks makes calls fail;
/// it never raises SIGPIPE in the host.
///
/// A copy shares the connections of its source and must not outlive it; the copy ends neither.
class KORVANE_API CFTPSend : public CFileWriter {
public:
    /// Set once the FTP client library has been initialised, by the first object of the process.
    static bool Init;

    CFTPSend();
    CFTPSend(const CFTPSend& source);
    CFTPSend& operator=(const CFTPSend& source);

    /// Closes the remote file if one is open, and ends the session.
    ~CFTPSend() override;

    /// Connects to `host` (a name or an address, with ":port" behind it where it is not 21) and logs in; a session
    /// that was open before is ended. Throws `StrError()` as a `char*`: empty when there is no connection, else the
    /// server's reply to the login.
    void Connect(const char* host, const char* user, const char* password);

    /// Changes the directory on the server. Throws the server's reply as a `char*`.
    void ChDir(const char* dir);

    /// Creates the remote file `path`, which goes to the server as it is. Text transfer when the second character of
    /// `mode` is 't' ("wt"), else binary. False on failure.
    bool Open(const char* path, const char* mode) override;

    /// Ends the remote file: 1 when the server confirmed it, 0 when not, and 0 with no file. (Not what
    /// `CFileWriter::Close` returns.)
    int Close() override;

    /// Sends size * count bytes. The number of BYTES sent, or (unsigned)-1 on an error: equal to `count` only where
    /// `size` is 1, as the exporters ask for.
    unsigned Write(void* buf, unsigned size, unsigned count) override;

    /// Sends a formatted text, at most 511 characters of it; the number of bytes sent, or -1.
    int Print(const char* format, ...) override;

    /// An upload cannot go back: sends `offset` zero bytes from where it stands, and returns `offset`.
    unsigned Seek(unsigned long offset) override;

    /// The server's last reply, line end included; "" with no connection.
    char* StrError() override;

private:
    int Send(const void* bytes, int count);
    void EndSession();

    NetBuf* m_pControl;
    NetBuf* m_pData;
    /// The connection belongs to the object this one was copied from.
    bool m_bControlBorrowed;
    bool m_bDataBorrowed;
};
