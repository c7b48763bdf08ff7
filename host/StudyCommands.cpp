#include "StudyCommands.h"

#include "Console.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

constexpr std::size_t kMostRunning = 4;
constexpr std::chrono::milliseconds kLook{20};

}  // namespace

void StudyCommands::Add(const korvane::ReceivedStudy& study) {
    if (!m_Command.empty()) m_Waiting.push_back(study);
}

void StudyCommands::Look() {
    std::erase_if(m_Running, [this](const Running& running) {
        const auto status = platform::AskProgram(running.program);
        if (status && *status != 0) {
            ++m_nFailed;
            Complain(m_Command + " for study " + running.study + ": exit status " + std::to_string(*status));
        }
        return status.has_value();
    });
    while (!m_Waiting.empty() && m_Running.size() < kMostRunning) {
        Start(m_Waiting.front());
        m_Waiting.pop_front();
    }
}

void StudyCommands::Start(const korvane::ReceivedStudy& study) {
    const std::vector<std::pair<std::string, std::string>> variables = {
        {"KORVANE_STUDY", korvane::Visible(study.study)},    {"KORVANE_PATIENT", korvane::Visible(study.patient)},
        {"KORVANE_CALLING", korvane::Visible(study.caller)}, {"KORVANE_FOLDER", study.folder},
        {"KORVANE_FILES", std::to_string(study.files)},
    };
    std::string why;
    const platform::ProgramHandle program = platform::StartProgram(m_Command, variables, why);
    if (program != platform::kNoProgram) {
        m_Running.push_back({program, study.study});
        return;
    }
    ++m_nFailed;
    Complain("cannot start " + m_Command + " for study " + study.study + ": " + why);
}

void StudyCommands::Finish() {
    while (!m_Waiting.empty() || !m_Running.empty()) {
        Look();
        if (platform::WasInterrupted()) break;
        std::this_thread::sleep_for(kLook);
    }
    for (const korvane::ReceivedStudy& study : m_Waiting) {
        ++m_nFailed;
        Complain(m_Command + " was not started for study " + study.study);
    }
}
