#include "platform/Signals.h"

#include <csignal>
#include <ctime>

namespace platform {

struct BlockBrokenPipe::State {
    sigset_t pipe;
    sigset_t before;
    bool wasPending;
};

BlockBrokenPipe::BlockBrokenPipe() : m_pState(std::make_unique<State>()) {
    sigset_t pending;
    sigpending(&pending);
    m_pState->wasPending = sigismember(&pending, SIGPIPE) == 1;
    sigemptyset(&m_pState->pipe);
    sigaddset(&m_pState->pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &m_pState->pipe, &m_pState->before);
}

BlockBrokenPipe::~BlockBrokenPipe() {
    // A SIGPIPE that was raised while it was blocked is taken off the queue: unblocking it would deliver it.
    const timespec noWait{};
    if (!m_pState->wasPending) {
        while (sigtimedwait(&m_pState->pipe, nullptr, &noWait) == SIGPIPE) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &m_pState->before, nullptr);
}

}  // namespace platform
