// For tests of what the Kit refuses.
#pragma once

#include <Korvane/kit/core/Error.h>

#include <functional>
#include <gtest/gtest.h>
#include <string>

/// Fails unless the action throws an error of that kind. The file that the error names.
inline std::string Refuses(const std::function<void()>& action, korvane::ErrorKind kind) {
    try {
        action();
        ADD_FAILURE() << "not refused";
        return {};
    } catch (const korvane::Error& error) {
        EXPECT_EQ(error.GetKind(), kind) << error.what();
        return error.GetFile();
    }
}
