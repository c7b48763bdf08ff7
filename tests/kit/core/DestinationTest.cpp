#include <Korvane/kit/core/Destination.h>
#include <Korvane/kit/core/Error.h>

#include <gtest/gtest.h>

using namespace korvane;

namespace {

std::string Parts(const char* url) {
    const Destination d = ParseDestination(url);
    const std::string login = d.isFtp ? d.user + "|" + d.password + "|" + d.host + "|" : "";
    return login + d.directory + "|" + d.name + "|" + d.Describe() + "|" + d.GetFolder();
}

TEST(DestinationTest, UrlsComeApartAndPasswordsAreNeverShown) {
    const std::pair<const char*, const char*> cases[] = {
        {"file:vol", ".|vol|vol|."},
        {"file:/vol", "|vol|/vol|"},
        {"vol", ".|vol|vol|."},
        {"a/b:c", "a|b:c|a/b:c|a"},
        {"C:\\vol", "C:|vol|C:/vol|C:"},
        {"file:a/b\\vol", "a/b|vol|a/b/vol|a/b"},
        {"file:C:\\out\\vol", "C:\\out|vol|C:\\out/vol|C:\\out"},
        {"file:a%b@c/d.e", "a%b@c|d.e|a%b@c/d.e|a%b@c"},
        {"ftp:user%p%w/d@host:2121/a/b/vol",
         "user|p%w/d|host:2121|a/b|vol|ftp:user@host:2121/a/b/vol|ftp:user@host:2121/a/b"},
        {"ftp:u%@h/a\\v", "u||h|.|a\\v|ftp:u@h/a\\v|ftp:u@h/."},
        {"ftp:u%p@h//v", "u|p|h||v|ftp:u@h//v|ftp:u@h/"},
    };
    for (const auto& [url, parts] : cases) EXPECT_EQ(Parts(url), parts) << url;
}

TEST(DestinationTest, ControlCharactersAndPathsTooLongNeverReachAServer) {
    for (const std::string& url :
         {std::string("ftp:u%p@host/a\r\nDELE b"), std::string("file:a\tb"), "ftp:u%p@h/" + std::string(1000, 'n'),
          std::string("ftp:u%p@h/.."), std::string("ftp:u%p"), std::string("file:a/"), std::string("http:x")}) {
        EXPECT_THROW(ParseDestination(url), Error) << url;
    }
}

}  // namespace
