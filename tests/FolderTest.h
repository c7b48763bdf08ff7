// The base of tests that write files.
#pragma once

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

/// Gives each test a folder, which is empty at first and removed when the test ends. Tests run side by side, so the folder's
/// name holds that of the test.
class FolderTest : public testing::Test {
protected:
    FolderTest() {
        std::filesystem::remove_all(m_Folder);
        std::filesystem::create_directories(m_Folder);
    }
    ~FolderTest() override { std::filesystem::remove_all(m_Folder); }

    std::string Path(const std::string& name) const { return (m_Folder / name).string(); }

    const std::filesystem::path m_Folder = std::filesystem::path(testing::TempDir()) / Name();

private:
    static std::string Name() {
        const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
        std::string name = std::string("korvane-") + test.test_suite_name() + '-' + test.name();
        std::replace(name.begin(), name.end(), '/', '-');  // in the names of typed tests
        return name;
    }
};
