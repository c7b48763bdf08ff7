// Lines for a reader who may be slow, or have gone.
#pragma once

#include <string>

/// Lines to standard output. What its reader does not take yet is kept here, so that the program's work goes on; beyond
/// 64 MB the work waits, and says so. Lines that nobody has read when the object goes are counted in a warning. (Where the
/// system does not tell whether writing would wait, on Windows, each line is written at once, however long it takes.)
class OutputLines {
public:
    OutputLines() = default;
    ~OutputLines();
    OutputLines(const OutputLines&) = delete;
    OutputLines& operator=(const OutputLines&) = delete;

    /// Without its end. Throws `korvane::Error` of kind `Stopped` from a wait.
    void Add(const std::string& line);

    /// Writes what the reader takes, waiting at most so long for each step of his. False when he takes nothing any more, for
    /// good.
    bool Write(int milliseconds);

    /// Waits until all is written. Throws `korvane::Error`: `Disk`, `Stopped`.
    void Finish();

private:
    std::string m_Pending;
    std::size_t m_Written = 0;  // of it
    bool m_bFailed = false;
};
