#include "HostError.h"

#include "TextEncoding.h"

#include <Korvane/platform/File.h>
#include <Korvane/platform/Terminal.h>

#include <cerrno>
#include <cstdio>

void StopIfInterrupted() {
    if (platform::WasInterrupted()) throw Interrupted();
}

std::string SystemText(int error) {
    return error != 0 ? std::generic_category().message(error) : "unknown reason";
}

std::string SystemText(const std::error_code& error, const std::string& path) {
    if (platform::IsPathTooLong(path.c_str())) return SystemText(ENAMETOOLONG);
    return error.default_error_condition().message();
}

void Warn(const std::string& text) {
    std::fflush(stdout);  // messages follow the output that they are about
    std::fprintf(stderr, "korvane: %s\n", Visible(text).c_str());
    std::fflush(stderr);
}
