#include "StudyCommands.h"

#include "../core/Visible.h"

#include <chrono>
#include <thread>
#include <utility>

namespace korvane {

namespace {

constexpr std::size_t kMostRunning = 4;
constexpr std::chrono::milliseconds kLook{20};

}  // namespace

void StudyCommands::Add(const ReceivedStudy& study) {
    if (!m_Command.empty()) m_Waiting.push_back(study);
}

void StudyCommands::Look() {
    std::erase_if(m_Running, [this](Running& running) {
        const auto end = running.program.Ask();
        if (end && end->status != 0)
            Fail(m_Command + " for study " + running.study + ": exit status " + std::to_string(end->status));
        return end.has_value();
    });
    while (!m_Waiting.empty() && m_Running.size() < kMostRunning) {
        Start(m_Waiting.front());
        m_Waiting.pop_front();
    }
}

void StudyCommands::Start(const ReceivedStudy& study) {
    platform::Program program;
    std::string why;
    const bool started = program.Start({.command = {m_Command},
                                        .variables = {{"KORVANE_STUDY", Visible(study.study)},
                                                      {"KORVANE_PATIENT", Visible(study.patient)},
                                                      {"KORVANE_CALLING", Visible(study.caller)},
                                                      {"KORVANE_FOLDER", study.folder},
                                                      {"KORVANE_FILES", std::to_string(study.files)}}},
                                       why);
    if (started) {
        m_Running.push_back({std::move(program), study.study});
    } else {
        Fail("cannot start " + m_Command + " for study " + study.study + ": " + why);
    }
}

void StudyCommands::Finish() {
    for (Look(); !m_Running.empty() && !m_Watch.IsStopped(); Look()) std::this_thread::sleep_for(kLook);
    for (const ReceivedStudy& study : m_Waiting) Fail(m_Command + " was not started for study " + study.study);
}

void StudyCommands::Fail(const std::string& what) {
    ++m_nFailed;
    m_Watch.Tell({.kind = FindingKind::CommandFailed, .text = what});
}

}  // namespace korvane
