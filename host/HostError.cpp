#include "HostError.h"

#include "TextEncoding.h"

#include <Korvane/platform/Terminal.h>

#include <cstdio>
#include <system_error>

void StopIfInterrupted() {
    if (platform::WasInterrupted()) throw Interrupted();
}

std::string SystemText(int error) {
    return error != 0 ? std::generic_category().message(error) : "unknown reason";
}

void Warn(const std::string& text) {
    std::fprintf(stderr, "korvane: %s\n", Visible(text).c_str());
}
