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

TEST(CVolumeExportTest, OwnsWriterAndReferenceAndACopyOwnsNothing) {
    static int deaths = 0;
    struct Mortal : CFileWriter {
        ~Mortal() override { ++deaths; }
    };
    TestSeries series(TestSeries::Form{});
    const CVolume& volume = *series.m_Series.GetVolume();
    {
        Recorder source;
        source = series;
        source = series;
        source.SetFileWriter(new Mortal);
        EXPECT_EQ(volume.GetNRefs(), 2);
        {
            Recorder copy(source);
            source = copy;  // what they share stays the source's
            Recorder other;
            other = series;
            other = copy;   // drops nothing that is shared
            copy = series;  // a reference of its own
            EXPECT_EQ(volume.GetNRefs(), 4);
            copy.SetFileWriter(new CFileWriter);
        }
        EXPECT_EQ(deaths, 0);
        EXPECT_EQ(volume.GetNRefs(), 2);
        source.SetFileWriter(new Mortal);
        EXPECT_EQ(deaths, 1);
    }
    EXPECT_EQ(deaths, 2);
    EXPECT_EQ(volume.GetNRefs(), 1);
}

}  // namespace
