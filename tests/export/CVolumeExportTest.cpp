#include "export/ExportFixture.h"

namespace {

constexpr char kBadUrl[] = "Bad URL: ftp:user%pwd@host/path/filename | file:path/filename";

TEST(CVolumeExportTest, SplitsFileUrlsAtTheLastBackslashOnly) {
    const std::map<std::string, std::string> saved = {
        {"file:C:\\out\\vol", "C:\\out|vol"}, {"file:a/vol", "|a/vol"}, {"file:\\vol", "|vol"}, {"file:", "|"}};
    for (const auto& [url, expected] : saved) {
        Recorder exporter;
        exporter.m_OnSave = [] { return true; };
        EXPECT_TRUE(exporter.SaveUrl(url.c_str())) << url;
        EXPECT_EQ(exporter.m_Saved, expected);
    }
}

TEST(CVolumeExportTest, CallsUrlsAndWhateverSaveThrowsBadButNotAPlainFalse) {
    for (const char* url : {"", "vol", "http:x", "FTP:u%p@127.0.0.1:1/x", ":x", "ftp:user@host/x", "ftp:u%p/x",
                            "ftp:u@h%p/x", "ftp:u%p@host", "ftp:u%p@127.0.0.1:1/a\r\nDELE b"}) {
        Recorder exporter;
        CFileWriter* const writer = exporter.GetFileWriter();
        EXPECT_FALSE(exporter.SaveUrl(url)) << url;
        EXPECT_EQ(exporter.GetError() + ("|" + exporter.m_Saved), std::string(kBadUrl) + "|nothing");
        EXPECT_EQ(exporter.GetFileWriter(), writer);
    }
    Recorder saving;
    EXPECT_FALSE(saving.SaveUrl("file:x"));  // there is no volume
    EXPECT_STREQ(saving.GetError(), "");
    saving.m_OnSave = []() -> bool { throw 7; };
    EXPECT_FALSE(saving.SaveUrl("file:x"));
    EXPECT_STREQ(saving.GetError(), kBadUrl);
}

}  // namespace
