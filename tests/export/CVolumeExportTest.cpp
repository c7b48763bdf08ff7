#include "export/ExportFixture.h"

namespace {

constexpr char kBadUrl[] = "Bad URL: ftp:user%pwd@host/path/filename | file:path/filename";

TEST(CVolumeExportTest, SplitsFileUrlsAtTheLastBackslashOnly) {
    const char* const cases[][2] = {{"file:C:\\out\\vol", "C:\\out|vol"},
                                    {"file:vol", "|vol"},
                                    {"file:a/vol", "|a/vol"},
                                    {"file:\\vol", "|vol"},
                                    {"file:", "|"},
                                    {"file:a\\", "a|"}};
    for (const auto& [url, saved] : cases) {
        Recorder exporter;
        exporter.m_OnSave = [] { return true; };
        EXPECT_TRUE(exporter.SaveUrl(url)) << url;
        EXPECT_EQ(exporter.m_Saved, saved);
    }
}

TEST(CVolumeExportTest, RefusesMalformedUrlsBeforeConnectingAnywhere) {
    for (const char* url : {"", "vol", "http:x", "FTP:u%p@127.0.0.1:1/x", ":x", "ftp:user@host/x", "ftp:u%p/x",
                            "ftp:u@h%p/x", "ftp:u%p@host", "ftp:u%p@127.0.0.1:1/a\r\nDELE b"}) {
        Recorder exporter;
        CFileWriter* const writer = exporter.GetFileWriter();
        EXPECT_FALSE(exporter.SaveUrl(url)) << url;
        EXPECT_STREQ(exporter.GetError(), kBadUrl);
        EXPECT_EQ(exporter.m_Saved, "nothing");
        EXPECT_EQ(exporter.GetFileWriter(), writer);
    }
}

TEST(CVolumeExportTest, ReportsAnyExceptionOutOfSaveAsABadUrlButNotAPlainFalse) {
    Recorder exporter;
    EXPECT_FALSE(exporter.SaveUrl("file:x"));
    EXPECT_STREQ(exporter.GetError(), "");
    exporter.m_OnSave = []() -> bool { throw 7; };
    EXPECT_FALSE(exporter.SaveUrl("file:x"));
    EXPECT_STREQ(exporter.GetError(), kBadUrl);
}

TEST(CVolumeExportTest, OwnsWriterAndReferenceAndACopyOwnsNothing) {
    struct Mortal : CFileWriter {
        explicit Mortal(int& deaths) : m_nDeaths(deaths) {}
        ~Mortal() override { ++m_nDeaths; }
        int& m_nDeaths;
    };
    TestSeries series(TestSeries::Form{});
    int deaths = 0;
    {
        Recorder source;
        source = series;
        source = series;
        source.SetFileWriter(new Mortal(deaths));
        EXPECT_EQ(series.m_Series.GetVolume()->GetNRefs(), 2);
        {
            Recorder copy(source);
            source = copy;  // what they share stays the source's
            Recorder other;
            other = series;
            other = copy;   // drops nothing that is shared
            copy = series;  // a reference of its own
            EXPECT_EQ(series.m_Series.GetVolume()->GetNRefs(), 4);
            copy.SetFileWriter(new CFileWriter);
        }
        EXPECT_EQ(deaths, 0);
        EXPECT_EQ(series.m_Series.GetVolume()->GetNRefs(), 2);
        source.SetFileWriter(new Mortal(deaths));
        EXPECT_EQ(deaths, 1);
    }
    EXPECT_EQ(deaths, 2);
    EXPECT_EQ(series.m_Series.GetVolume()->GetNRefs(), 1);
}

}  // namespace
