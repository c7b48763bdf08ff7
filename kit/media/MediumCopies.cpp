#include "MediumCopies.h"

#include "../core/Error.h"

#include "platform/FileTree.h"

#include <cerrno>
#include <utility>

namespace korvane {

void MediumCopies::Add(const std::string& source, const std::string& destination) {
    const std::lock_guard lock(m_Mutex);
    m_Waiting.push_back({source, destination});
}

void MediumCopies::Work(std::size_t most) {
    for (; most > 0; --most) {
        std::unique_lock lock(m_Mutex);
        if (m_Failure || m_Waiting.empty()) return;
        const std::size_t number = m_nBegun++;
        const Copy copy = std::move(m_Waiting.front());
        m_Waiting.pop_front();
        lock.unlock();
        std::exception_ptr failure;
        try {
            Make(copy);
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        ++m_nDone;
        if (failure && (!m_Failure || number < m_Failed)) {
            m_Failure = failure;
            m_Failed = number;
        }
    }
}

void MediumCopies::Make(const Copy& copy) const {
    const auto fail = [&](const std::string& message, int error) {
        m_Watch.StopIfAsked();
        throw Error(ErrorKind::Disk, WithReason(message, error)).InFile(copy.source);
    };
    errno = 0;
    // Nobody looks before the directory is there, and a medium without one is removed.
    if (platform::DuplicateNew(copy.source.c_str(), copy.destination.c_str(), m_Watch.GetStopQuestion())) return;
    const int error = errno;
    if (error == EEXIST) fail("Destination is not empty", 0);
    fail("Cannot copy " + copy.source + " to " + copy.destination, error);
}

std::size_t MediumCopies::CountWaiting() const {
    const std::lock_guard lock(m_Mutex);
    return m_Failure ? 0 : m_Waiting.size();
}

std::size_t MediumCopies::TakeDone() {
    const std::lock_guard lock(m_Mutex);
    return std::exchange(m_nDone, 0);
}

void MediumCopies::Rethrow() const {
    const std::lock_guard lock(m_Mutex);
    if (m_Failure) std::rethrow_exception(m_Failure);
}

std::string WithReason(const std::string& message, int error) {
    const std::string reason = SystemText(error);
    return error != 0 && !message.ends_with(reason) ? message + ": " + reason : message;
}

}  // namespace korvane
