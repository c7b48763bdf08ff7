// A program that is run for each study that has come.
#pragma once

#include "../core/Watch.h"
#include "Receive.h"

#include "platform/Program.h"

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace korvane {

/// Runs `ReceiveOptions::onStudy` for studies, some at once; the others wait. What a peer chose is in variables of the
/// program's environment and never part of a command line. One that cannot be started, or fails, is told to the watcher.
/// For one thread.
class StudyCommands {
public:
    /// `command`: a program's name or path; empty: none is run.
    StudyCommands(std::string command, const Watch& watch) : m_Command(std::move(command)), m_Watch(watch) {}

    void Add(const ReceivedStudy& study);
    /// Looks which have ended, and starts others.
    void Look();
    /// Waits until all have ended. Stopped, it returns at once, and tells for which studies none was started.
    void Finish();

    std::size_t GetFailed() const { return m_nFailed; }

private:
    struct Running {
        platform::Program program;
        std::string study;
    };

    void Start(const ReceivedStudy& study);
    void Fail(const std::string& what);

    std::string m_Command;
    Watch m_Watch;
    std::deque<ReceivedStudy> m_Waiting;
    std::vector<Running> m_Running;
    std::size_t m_nFailed = 0;
};

}  // namespace korvane
