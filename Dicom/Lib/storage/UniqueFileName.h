// Chooses a file name that is not taken.
#pragma once

#include <string>

/// Directory, base name ("Unnamed" when empty) and extension, without separators and dots of their own.
struct UniqueFileName {
    std::string m_Directory;
    std::string m_BaseName;
    std::string m_Extension;

    /// "directory/base.extension", or while that exists "directory/base.01.extension", .02 and so on. After 100 the
    /// search stops: that name is returned whether it exists or not.
    std::string Make() const;
};
