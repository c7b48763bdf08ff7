#include "export/ExportFixture.h"
#include "export/FakeFtpServer.h"

namespace {

class CFTPSendTest : public ExportTest {
protected:
    bool Save(const std::string& login, const std::string& rest) {
        m_Exporter = m_Series;
        return m_Exporter.SaveUrl(("ftp:" + login + "@" + m_Server.Host() + rest).c_str());
    }
    FakeFtpServer m_Server;  // first, so that it outlives the session
    CFTPSend m_Sender;
    char m_Text[6] = "a\nbcd";
    TestSeries m_Series{TestSeries::Form{}};
    Recorder m_Exporter;
};

TEST_F(CFTPSendTest, DoesNothingWithoutAConnection) {
    EXPECT_FALSE(m_Sender.Open("f", "wb"));
    EXPECT_NE(m_Sender.Write(m_Text, 1, 5), 5u);
    EXPECT_LT(m_Sender.Print("x"), 0);
    EXPECT_EQ(m_Sender.Close(), 0);
    EXPECT_EQ(ThrownText([this] { m_Sender.ChDir("d"); }), "");
    for (const std::string& host : {FakeFtpServer().Host(), std::string("no-such-host.invalid")}) {
        EXPECT_EQ(ThrownText([&] { m_Sender.Connect(host.c_str(), "me", "p"); }), "");
    }
}

TEST_F(CFTPSendTest, UploadsWhatIsWrittenPrintedAndPadded) {
    m_Sender.Connect(m_Server.Host().c_str(), "me", "secret");
    m_Sender.ChDir("good");
    EXPECT_EQ(ThrownText([this] { m_Sender.ChDir("missing"); }).substr(0, 13), "550 No folder");
    ASSERT_TRUE(m_Sender.Open("dir/f", "wb"));
    EXPECT_EQ(m_Sender.Write(m_Text, 2, 2), 4u);  // bytes, not items
    {
        CFTPSend copy(m_Sender);  // uses the session and ends nothing
        EXPECT_EQ(copy.Seek(3), 3u);
        CFTPSend other;
        other = copy;
        m_Sender = other;
        EXPECT_EQ(other.Close(), 0);
    }
    EXPECT_EQ(m_Sender.Print("%d %s|", 7, "x"), 4);
    EXPECT_EQ(m_Sender.Print("%s", std::string(600, 'y').c_str()), 511);
    ASSERT_TRUE(m_Sender.Open("text", "wt"));  // closes the file before
    EXPECT_EQ(m_Sender.Write(m_Text, 1, 5), 5u);
    EXPECT_EQ(m_Sender.Close(), 1);
    m_Sender = CFTPSend();  // ends the session
    m_Server.Finish();
    EXPECT_EQ(m_Server.m_Files["dir/f"], std::string("a\nbc\0\0\0", 7) + "7 x|" + std::string(511, 'y'));
    EXPECT_EQ(m_Server.m_Files["text"], "a\r\nbcd");
    EXPECT_EQ(m_Server.m_Log.substr(m_Server.m_Log.size() - 5), "QUIT ");
}

TEST_F(CFTPSendTest, ABrokenConnectionFailsWithoutEndingTheProcess) {
    m_Sender.Connect(m_Server.Host().c_str(), "me", "secret");
    ASSERT_TRUE(m_Sender.Open("cut", "wb"));
    for (int i = 0; i < 10000 && m_Sender.Write(m_Text, 1, 5) == 5; ++i) {
    }
    EXPECT_NE(m_Sender.Write(m_Text, 1, 5), 5u);
    EXPECT_FALSE(m_Sender.Open("g", "wb"));
}

TEST_F(CFTPSendTest, AnFtpUrlSavesTheSameFilesAsToDisk) {
    ASSERT_TRUE(Save("me%secret", "/a/b/vol"));
    EXPECT_EQ(m_Exporter.m_Saved, "a/b|vol");
    EXPECT_FALSE(m_Exporter.SaveUrl("file:refused"));
    EXPECT_STREQ(m_Exporter.GetError(), "");
    EXPECT_TRUE(m_Exporter.SaveUrl("file:vol"));  // the session stays the writer
    m_Exporter.SetFileWriter(new CFileWriter);
    m_Server.Finish();
    ASSERT_TRUE(m_Exporter.Save(m_Folder.string().c_str(), "vol"));
    EXPECT_EQ(m_Server.m_Files.size(), 4u);
    EXPECT_EQ(m_Server.m_Files["a/b/vol.hdr"], ReadBack("vol.hdr"));
    EXPECT_EQ(m_Server.m_Files["a/b/vol.img"], ReadBack("vol.img"));
    EXPECT_EQ(m_Server.m_Files["/vol.img"], ReadBack("vol.img"));
}

TEST_F(CFTPSendTest, AFailedLoginKeepsTheWriterAndGivesTheServersReply) {
    CFileWriter* const writer = m_Exporter.GetFileWriter();
    EXPECT_FALSE(Save("me%wrong", "/vol"));
    EXPECT_EQ(std::string(m_Exporter.GetError()).substr(0, 19), "530 Login incorrect");
    m_Server.Finish();
    EXPECT_FALSE(Save("me%secret", "/vol"));  // nobody listens now
    EXPECT_STREQ(m_Exporter.GetError(), "");
    EXPECT_EQ(m_Exporter.GetFileWriter(), writer);
    EXPECT_EQ(m_Server.m_Log, "USER me PASS wrong QUIT ");
}

}  // namespace
