#include "Error.h"

#include "platform/File.h"

#include <cerrno>

namespace korvane {

const char* WordOf(ErrorKind kind) {
    switch (kind) {
    case ErrorKind::NotFound: return "not found";
    case ErrorKind::NotDicom: return "not DICOM";
    case ErrorKind::Damaged: return "damaged";
    case ErrorKind::Unsupported: return "unsupported";
    case ErrorKind::Irregular: return "irregular";
    case ErrorKind::Refused: return "refused";
    case ErrorKind::Disk: return "disk";
    case ErrorKind::Stopped: return "stopped";
    case ErrorKind::WrongArgument: return "wrong argument";
    }
    return "unknown";
}

Error::Error(ErrorKind kind, const std::string& sentence) : std::runtime_error(sentence), m_Kind(kind) {}
Error::Error(const Error& other) = default;
Error& Error::operator=(const Error& other) = default;
Error::~Error() = default;

Error& Error::InFile(const std::string& path) {
    m_File = path;
    return *this;
}

Error& Error::AtElement(std::uint32_t tag) {
    m_Element = tag;
    return *this;
}

Error& Error::AtOffset(std::uint64_t bytes) {
    m_Offset = bytes;
    return *this;
}

Error& Error::WithChoices(const std::string& lines) {
    m_Choices = lines;
    return *this;
}

std::string SystemText(int error) {
    return error != 0 ? std::generic_category().message(error) : "unknown reason";
}

std::string SystemText(const std::error_code& error, const std::string& path) {
    if (platform::IsPathTooLong(path.c_str())) return SystemText(ENAMETOOLONG);
    return error.default_error_condition().message();
}

}  // namespace korvane
