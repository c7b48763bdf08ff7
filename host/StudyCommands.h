// A program that is run for each study that has come.
#pragma once

#include <Korvane/Kit.h>

#include "terminal/Terminal.h"

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

/// Runs a program for each study, some of them at once; the others wait. What a peer chose is in variables of the
/// program's environment and never part of a command line: KORVANE_STUDY, KORVANE_PATIENT, KORVANE_CALLING,
/// KORVANE_FOLDER, KORVANE_FILES. A program that cannot be started, or fails, is told on standard error.
class StudyCommands {
public:
    /// `command`: a program's name or path; empty: none is run.
    explicit StudyCommands(std::string command) : m_Command(std::move(command)) {}

    void Add(const korvane::ReceivedStudy& study);
    /// Looks which have ended, and starts others.
    void Look();
    /// Waits until all have ended. After Ctrl-C it returns at once, and says for which studies none was started.
    void Finish();

    std::size_t GetFailed() const { return m_nFailed; }

private:
    struct Running {
        platform::ProgramHandle program;
        std::string study;
    };

    void Start(const korvane::ReceivedStudy& study);

    std::string m_Command;
    std::deque<korvane::ReceivedStudy> m_Waiting;
    std::vector<Running> m_Running;
    std::size_t m_nFailed = 0;
};
