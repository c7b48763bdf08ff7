// The one way in which the Kit fails.
#pragma once

#include "KitExport.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

namespace korvane {

/// The kind of a failure, for a program to branch on.
enum class ErrorKind {
    NotFound,       ///< a file, folder, host or series that is not there
    NotDicom,       ///< a file that is something else
    Damaged,        ///< data that ends early or contradicts itself
    Unsupported,    ///< sound data, or a request, that this library cannot handle: a codec, pixel type or format
    Irregular,      ///< a series that makes no even volume, and the caller asked to refuse those
    Refused,        ///< another program refused, or broke the connection off
    Disk,           ///< the system failed to read, write, create or rename
    Stopped,        ///< the caller's `Watcher` asked the job to stop
    WrongArgument,  ///< arguments that make no sense, or that name nothing or several things
};

/// A stable word for reports: "not found", "not DICOM", "damaged", "unsupported", "irregular", "refused", "disk",
/// "stopped", "wrong argument".
KORVANE_KIT const char* WordOf(ErrorKind kind);

/// Thrown by every function of the Kit that cannot do what it was asked. `what()` is one sentence for people, which
/// names the file and the reason; it may hold bytes of file names and values as they are: escape them before printing.
/// Beside it only `std::bad_alloc` is thrown.
class KORVANE_KIT Error : public std::runtime_error {
public:
    Error(ErrorKind kind, const std::string& sentence);
    Error(const Error& other);
    Error& operator=(const Error& other);
    ~Error() override;

    // Further facts, where known. Each returns the object, so that a throw stays one expression.
    Error& InFile(const std::string& path);
    Error& AtElement(std::uint32_t tag);  ///< group in the upper, element in the lower 16 bits
    Error& AtOffset(std::uint64_t bytes);
    /// For `WrongArgument`: the possible choices, as whole lines with their ends, safe to print.
    Error& WithChoices(const std::string& lines);

    ErrorKind GetKind() const { return m_Kind; }
    /// The path as it was given or found; empty when the failure is not about one file.
    const std::string& GetFile() const { return m_File; }
    std::optional<std::uint32_t> GetElement() const { return m_Element; }
    std::optional<std::uint64_t> GetOffset() const { return m_Offset; }
    const std::string& GetChoices() const { return m_Choices; }

private:
    ErrorKind m_Kind;
    std::string m_File;
    std::optional<std::uint32_t> m_Element;
    std::optional<std::uint64_t> m_Offset;
    std::string m_Choices;
};

/// The text of an `errno` value; "unknown reason" for 0.
KORVANE_KIT std::string SystemText(int error);
/// Why something could not be done with `path`. The text is that of the `errno` value that matches the error, where
/// there is one, since Windows' own texts are in the user's language and in the system's code page.
KORVANE_KIT std::string SystemText(const std::error_code& error, const std::string& path);

}  // namespace korvane
