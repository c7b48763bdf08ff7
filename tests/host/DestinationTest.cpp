#include "host/Destination.h"
#include "host/HostError.h"

#include <gtest/gtest.h>

namespace {

TEST(DestinationTest, FilePathsSplitAtTheLastSeparatorOfEitherKind) {
    struct Case {
        const char* url;
        const char* directory;
        const char* name;
        const char* shown;
    };
    for (const Case& c :
         {Case{"file:vol", ".", "vol", "vol"}, Case{"file:/vol", "", "vol", "/vol"},
          Case{"file:a/b\\vol", "a/b", "vol", "a/b/vol"}, Case{"file:C:\\out\\vol", "C:\\out", "vol", "C:\\out/vol"},
          Case{"file:a%b@c/d.e", "a%b@c", "d.e", "a%b@c/d.e"}}) {
        const Destination destination = ParseDestination(c.url);
        EXPECT_FALSE(destination.isFtp) << c.url;
        EXPECT_EQ(destination.directory, c.directory) << c.url;
        EXPECT_EQ(destination.name, c.name) << c.url;
        EXPECT_EQ(destination.Describe(), c.shown) << c.url;
    }
}

TEST(DestinationTest, FtpPasswordsMayHoldPercentAndAreNeverShown) {
    const Destination destination = ParseDestination("ftp:user%p%w/d@host:2121/a/b/vol");
    EXPECT_TRUE(destination.isFtp);
    EXPECT_EQ(destination.user, "user");
    EXPECT_EQ(destination.password, "p%w/d");
    EXPECT_EQ(destination.host, "host:2121");
    EXPECT_EQ(destination.directory, "a/b");
    EXPECT_EQ(destination.name, "vol");
    EXPECT_EQ(destination.Describe(), "ftp:user@host:2121/a/b/vol");
    EXPECT_EQ(ParseDestination("ftp:u%@h/v").password, "");
    EXPECT_EQ(ParseDestination("ftp:u%p@h/v").directory, ".");
    EXPECT_EQ(ParseDestination("ftp:u%p@h//v").directory, "");
}

TEST(DestinationTest, ControlCharactersNeverReachAServer) {
    EXPECT_THROW(ParseDestination("ftp:u%p@host/a\r\nDELE b"), UsageError);
    EXPECT_THROW(ParseDestination("file:a\tb"), UsageError);
}

}  // namespace
