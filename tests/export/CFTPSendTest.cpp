// Without a server; test_ftp.py has the servers.
#include "export/ExportFixture.h"

namespace {

TEST(CFTPSendTest, DoesNothingWithoutAConnection) {
    CFTPSend sender;
    char text[] = "abc";
    EXPECT_FALSE(sender.Open("f", "wb"));
    EXPECT_NE(sender.Write(text, 1, 3), 3u);
    EXPECT_LT(sender.Print("x"), 0);
    EXPECT_EQ(sender.Close(), 0);
    EXPECT_EQ(ThrownText([&] { sender.ChDir("d"); }), "");
    for (const char* host : {"127.0.0.1:1", "no-such-host.invalid"}) {
        EXPECT_EQ(ThrownText([&] { sender.Connect(host, "me", "p"); }), "");
    }
}

}  // namespace
