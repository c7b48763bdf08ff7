// Lines of output for a reader that may be slow or have gone.
#pragma once

#include <string>

/// Writes lines to standard output. What its reader does not take yet is kept here, so that the program's work goes on;
/// beyond 64 MB the work waits, and a warning says so. Lines that nobody has read when the object is destroyed are
/// counted in a warning. On Windows, which does not tell whether writing would wait, each line is written at once,
/// however long it takes.
class OutputLines {
public:
    OutputLines() = default;
    ~OutputLines();
    OutputLines(const OutputLines&) = delete;
    OutputLines& operator=(const OutputLines&) = delete;

    /// Adds a line, given without its end. Throws `korvane::Error` of kind `Stopped` when it is stopped while it waits.
    void Add(const std::string& line);

    /// Writes what the reader takes, and waits at most so many milliseconds each time until it takes more. False when
    /// the reader has gone.
    bool Write(int milliseconds);

    /// Waits until all is written. Throws `korvane::Error`: `Disk`, `Stopped`.
    void Finish();

private:
    std::string m_Pending;
    std::size_t m_Written = 0;  // bytes of `m_Pending` that are written
    bool m_bFailed = false;
};
