#include "HostError.h"

#include "TextEncoding.h"

#include "host/terminal/Terminal.h"

#include <cstdio>

namespace korvane {

void StopIfInterrupted() {
    if (platform::WasInterrupted()) throw Interrupted();
}

namespace {

/// Without the passwords of FTP URLs, which stand where a URL was taken for something else.
std::string WithoutPasswords(std::string text) {
    for (std::size_t at = 0; (at = text.find("ftp:", at)) != std::string::npos; at += 4) {
        const std::size_t from = text.find('%', at);
        const std::size_t to = from == std::string::npos ? from : text.find('@', from);
        if (to != std::string::npos) text.erase(from, to - from);
    }
    return text;
}

}  // namespace

void Warn(const std::string& text) {
    std::fflush(stdout);  // messages follow the output that they are about
    std::fprintf(stderr, "korvane: %s\n", Visible(WithoutPasswords(text)).c_str());
    std::fflush(stderr);
}

}  // namespace korvane
