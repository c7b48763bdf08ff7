// The message buffers of the exceptions, which the library offers no accessor for: found in the writable memory of the
// module. `nullptr` where the system does not list that memory.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

/// The sanitizer takes the gaps between variables for out of bounds.
__attribute__((no_sanitize("address"))) inline char* FindText(char* from, const char* end, const std::string& text) {
    for (; from + text.size() <= end; ++from) {
        std::size_t i = 0;
        while (i < text.size() && from[i] == text[i]) ++i;
        if (i == text.size()) return from;
    }
    return nullptr;
}

inline char* FindMessageBuffer(const std::string& prefix) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find("rw-p") == std::string::npos || line.find("Korvane") == std::string::npos) continue;
        std::uintptr_t first = 0;
        std::uintptr_t last = 0;
        char dash = 0;
        std::istringstream(line) >> std::hex >> first >> dash >> last;
        char* const found = FindText(reinterpret_cast<char*>(first), reinterpret_cast<char*>(last), prefix);
        if (found != nullptr) return found;
    }
    return nullptr;
}

/// What the operations append behind a prefix. Forgets what was there before.
class Messages {
public:
    explicit Messages(const std::string& prefix) : m_Text(FindMessageBuffer(prefix)) {
        if (m_Text == nullptr) return;
        m_Text += prefix.size();
        std::memset(m_Text, 0, std::strlen(m_Text));
    }
    bool IsFound() const { return m_Text != nullptr; }
    /// Everything since the last call.
    std::string Take() {
        const std::string text = m_Text;
        std::memset(m_Text, 0, text.size());
        return text;
    }
    std::string Peek() const { return m_Text; }

private:
    char* m_Text;
};
