// A folder for bytes that must lie in files for a while.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace korvane {

/// A folder that nobody else may look into, under a name that nobody had. It goes with its object, and so do the files
/// whose names it gave; not with the copy of the object that a forked process has.
class TemporaryFolder {
public:
    /// `under`: the folder to make it in; "" for the system's own for such things. Throws `Error`.
    explicit TemporaryFolder(const std::string& under);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// The path of a file that is not there yet. On any thread.
    std::string NewFile() { return NameOf(++m_nFiles); }
    /// Takes back the name that was given last, and the file if there is one. Not while another thread asks for a name.
    void DropLastFile();
    /// Removes a file before the folder goes. On any thread.
    void RemoveEarly(const std::string& path) const noexcept;

private:
    bool IsMine() const;
    std::string NameOf(std::size_t number) const { return m_Path + "/" + std::to_string(number); }

    std::string m_Path;
    std::atomic<std::size_t> m_nFiles = 0;
    std::uint32_t m_nMaker;
};

}  // namespace korvane
