// Reads text files line by line, without comments and blank lines.
#pragma once

#include "../base/Export.h"

#include <cstdio>

/// A reader of text files in which "#" begins a comment. Lines longer than 511 characters are read in pieces, each
/// counted as a line.
///
/// A copy shares the file (and its position) with its source, must not outlive it, and does not close it.
class KORVANE_API CFileReader {
public:
    /// No file: `Eof` is true and nothing can be read.
    CFileReader();

    /// Opens `path` (either separator). Throws the system's error text as a `char*`.
    explicit CFileReader(const char* path);

    CFileReader(const CFileReader& source);
    CFileReader& operator=(const CFileReader& source);
    ~CFileReader();

    /// Copies the next line that holds anything besides white space and a comment to `dst`, at most `size` - 1
    /// characters of it, and fills the rest of `dst` with zero bytes. Comment and trailing white space are removed;
    /// leading white space is kept, for formats in which the indent means something. False at the end of the file.
    /// Throws the system's error text as a `char*` when reading fails.
    bool ReadNextLine(char* dst, int size);

    /// The whole line last read, cut like the one `ReadNextLine` gives.
    char* GetCurrentLineBuf() { return m_Line; }

    /// The number of the line last read, from 1; 0 before the first. Skipped lines count.
    int GetCurrentLineNumber() const { return m_nLine; }

    /// Whether reading has met the end of the file.
    bool Eof() const;

    /// Goes back to the start.
    void Reset();

private:
    void Close();

    int m_nLine;
    std::FILE* m_pFile;
    char m_Line[512];
    /// The file belongs to the reader this one was copied from.
    bool m_bBorrowed;
};
