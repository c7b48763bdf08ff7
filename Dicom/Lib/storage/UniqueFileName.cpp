#include "UniqueFileName.h"

#include "platform/File.h"

#include <cstdio>

std::string UniqueFileName::Make() const {
    const std::string stem = m_Directory + "/" + (m_BaseName.empty() ? "Unnamed" : m_BaseName) + ".";
    std::string candidate = stem + m_Extension;
    for (int counter = 1; counter <= 100 && platform::FileExists(candidate.c_str()); ++counter) {
        char number[16];
        std::snprintf(number, sizeof number, "%2.2d.", counter);
        candidate = stem + number + m_Extension;
    }
    return candidate;
}
