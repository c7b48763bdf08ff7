#include "../ChildProgram.h"

#include "../Terminal.h"

#include <Korvane/Kit.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

std::optional<int> RunChild(const std::vector<std::string>& arguments) {
    std::vector<std::string> texts{"korvane"};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char*> words;
    for (std::string& text : texts) words.push_back(text.data());
    words.push_back(nullptr);
    pid_t child = 0;
    const int failure = posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, words.data(), environ);
    if (failure != 0) {
        throw korvane::Error(korvane::ErrorKind::Disk,
                             std::string("cannot start this program once more: ") + std::strerror(failure));
    }
    int status = 0;
    bool isTold = false;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        // Ctrl-C at a terminal reaches the child anyway; a second request would end it at once.
        if (platform::WasInterrupted() && !isTold && tcgetpgrp(STDIN_FILENO) != getpgrp()) kill(child, SIGTERM);
        isTold = isTold || platform::WasInterrupted();
    }
    return WIFEXITED(status) ? std::optional<int>(WEXITSTATUS(status)) : std::nullopt;
}
