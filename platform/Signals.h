// Keeps a broken connection from ending the process.
#pragma once

#include <memory>

namespace platform {

/// While it lives, a write to a connection that the peer has closed fails with an error instead of raising SIGPIPE in
/// this thread. Nothing to do where the system has no such signal.
class BlockBrokenPipe {
public:
    BlockBrokenPipe();
    ~BlockBrokenPipe();
    BlockBrokenPipe(const BlockBrokenPipe&) = delete;
    BlockBrokenPipe& operator=(const BlockBrokenPipe&) = delete;

private:
    struct State;
    std::unique_ptr<State> m_pState;
};

}  // namespace platform
