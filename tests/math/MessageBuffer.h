// Reads the message buffers of the math exceptions. The library has no accessor for them, so they are searched in the
// writable memory of the module; where the system does not list that memory, none are found.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

/// The names of operations that are appended behind one prefix, from now on.
class Messages {
public:
    explicit Messages(const std::string& prefix) {
        std::ifstream maps("/proc/self/maps"), memory("/proc/self/mem", std::ios::binary);
        for (std::string line; !IsFound() && std::getline(maps, line);) {
            if (line.find("rw-p") == line.npos || line.find("Korvane") == line.npos) continue;
            std::uintptr_t first = 0, last = 0;
            std::istringstream(line.replace(line.find('-'), 1, " ")) >> std::hex >> first >> last;
            std::string bytes(last - first, '\0');
            memory.seekg(static_cast<std::streamoff>(first))
                .read(bytes.data(), static_cast<std::streamsize>(last - first));
            const std::size_t at = bytes.find(prefix);
            if (at != bytes.npos) m_pText = reinterpret_cast<char*>(first) + at + prefix.size();
        }
        if (IsFound()) Take();
    }
    bool IsFound() const { return m_pText != nullptr; }
    /// What was appended since the last call.
    std::string Take() {
        std::string text = m_pText;
        std::memset(m_pText, 0, text.size());
        return text;
    }

private:
    char* m_pText = nullptr;
};
