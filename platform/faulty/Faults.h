// What the faulty implementation of FileCalls.h does wrong, for tests. A test program that is linked with it has the
// system's own file calls until a `Faults` says otherwise.
#pragma once

#include <cerrno>
#include <cstddef>
#include <string>

namespace platform {

/// While an object lives, the file calls of all threads fail as it says. Only one may live at a time. Counts begin when
/// it is made.
class Faults {
public:
    Faults();
    ~Faults();
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    static constexpr int kNever = 0;

    // To be set before the calls are made. Calls count from 1; what fails once goes on failing, as a full disk does.
    int failingWrite = kNever;  ///< this write of the system and those that follow fail with ENOSPC
    int failingRead = kNever;   ///< the same with EIO
    int failingSync = kNever;   ///< EIO
    int failingClose = kNever;  ///< of files that were written: they are closed, and EIO is told
    int failingRename = kNever;
    int renameError = EACCES;
    std::size_t mostRead = 0;  ///< a read gives no more bytes than this; 0: as many as there are
    std::size_t mostWritten = 0;

    /// Files that are concerned, by a part of their path; "": all.
    std::string only;

    // How often each was called.
    int writes = 0;
    int reads = 0;
    int syncs = 0;
    int closes = 0;
    int renames = 0;
};

}  // namespace platform
