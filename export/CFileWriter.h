// The output of an exporter: a local file here, something else in a derived class.
#pragma once

#include "../base/Export.h"

#include <cstdio>
#include <memory>

/// Writes files on a local disk through stdio; the base class of every other destination (see CFTPSend). A host may
/// derive a writer of its own and hand it to `CVolumeExport::SetFileWriter`; the exporters use `Open` with "wb",
/// `Write`, `Print` and `Close`, one file after the other.
///
/// A writer is closed (no file) or open (one file). With no file, `Write` writes nothing, `Print` and `Seek` fail.
///
/// Small writes are collected in a buffer of 1 MB, so a full disk may show in `Close` only.
///
/// A copy shares the open file of its source and must not outlive it: it can write to the file, but only the source
/// closes it (`Close` of the copy flushes what was written and lets go).
class KORVANE_API CFileWriter {
public:
    CFileWriter();
    CFileWriter(const CFileWriter& source);

    /// Closes an open file of its own first, then shares that of `source`.
    CFileWriter& operator=(const CFileWriter& source);

    /// Closes the file if one is open.
    virtual ~CFileWriter();

    /// Opens `path` with the mode of `fopen`, after `Close` of a file that is still open. Both path separators are
    /// accepted. False when it cannot be opened (a directory, for instance); `StrError` then says why.
    virtual bool Open(const char* path, const char* mode);

    /// Closes the file. The result of `fclose` (0, or EOF when what was buffered could not be written); 0 with no file.
    virtual int Close();

    /// Writes `count` items of `size` bytes each; the number of items written.
    virtual unsigned Write(void* buf, unsigned size, unsigned count);

    /// Writes formatted text as `fprintf` does; the number of bytes, or a negative number on failure. Numbers with a
    /// decimal point follow the program's locale.
    virtual int Print(const char* format, ...);

    /// Moves to `offset` bytes from the start of the file. 0 when done.
    virtual unsigned Seek(unsigned long offset);

    /// The text of the current `errno`.
    virtual char* StrError();

protected:
    /// The open file, or null. A derived class may leave it unused.
    std::FILE* m_pFile;

private:
    std::unique_ptr<char[]> m_pBuffer;
    /// The file belongs to the writer this one was copied from.
    bool m_bBorrowed;
};
