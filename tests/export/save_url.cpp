// Drives FTP saves for test_ftp.py:
//
//     save_url FORMAT URL SIDE TIMEOUT   a volume of 4 slices of SIDE x SIDE voxels ("bytes": Analyze, 8 bits) to URL, then
//                                        to file:local\vol from a fresh exporter; prints one line each: results, whether
//                                        the writer stayed, text
//     save_url writer HOST               what a writer does besides
//     save_url threads HOST COUNT        so many threads at once, each with a session and exporters of its own; thread k
//                                        saves a volume of Analyze to sub/k on the server and to local\k
#include "Latch.h"
#include "export/ExportFixture.h"

#include <cstdio>
#include <thread>

namespace {

template <class Exporter, int Bits = 16>
void Save(const char* url, int side, int timeout) {
    const TestSeries::Form form{.slices = 4, .bits = Bits, .isSigned = Bits == 16, .rows = side, .columns = side};
    TestSeries series(form);
    series.Range(0, 4 * side * side - 1);
    Exporter exporter, fresh;
    exporter = series;
    fresh = series;
    CFileWriter* const writer = exporter.GetFileWriter();
    CFTPSend::Timeout = timeout;
    std::printf("%d\n", exporter.SaveUrl(url));
    std::printf("%d\n%d\n", exporter.GetFileWriter() == writer, fresh.SaveUrl("file:local\\vol"));
    std::printf("%s\n", exporter.GetError());
}

void Write(const char* host) {
    char text[6] = "a\nbcd";
    CFTPSend sender;
    sender.Connect(host, "me", "s3cret");
    sender.ChDir("sub");
    std::printf("%s", ThrownText([&] { sender.ChDir("missing"); }).c_str());
    std::printf("%d ", sender.Open("a name", "wb"));
    std::printf("%u ", sender.Write(text, 2, 2));
    {
        CFTPSend copy(sender);  // uses the session and ends nothing
        std::printf("%u ", copy.Seek(3));
        CFTPSend other;
        other = copy;
        sender = other;
        std::printf("%d ", other.Close());
    }
    std::printf("%d ", sender.Print("%d %s|", 7, "x"));
    std::printf("%d ", sender.Print("%s", std::string(600, 'y').c_str()));
    std::printf("%d ", sender.Open("text", "wt"));  // closes the file before
    std::printf("%u ", sender.Write(text, 1, 5));
    std::printf("%d %d\n", sender.Close(), sender.HasFailed());
}

void SaveAtOnce(const std::string& host, int count) {
    Latch start(count);
    std::vector<std::thread> threads;
    for (int k = 0; k < count; ++k) {
        threads.emplace_back([&, k] {
            const std::string name = std::to_string(k);
            TestSeries series(TestSeries::Form{.slices = 4, .first = 1000 * k, .rows = 100, .columns = 100});
            CAnalyzeVolume remote, local;
            remote = series;
            local = series;
            start.ArriveAndWait();
            CFTPSend sender;
            sender.Connect(host.c_str(), "me", "s3cret");
            const std::string refusal = ThrownText([&] { sender.ChDir("missing"); });
            const bool saved = remote.SaveUrl(("ftp:me%s3cret@" + host + "/sub/" + name).c_str());
            std::printf("%d", saved && local.SaveUrl(("file:local\\" + name).c_str()) && refusal.starts_with("550 "));
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace

int main(int count, char** words) {
    const std::vector<std::string> arguments(words + 1, words + count);
    if (arguments[0] == "writer") {
        Write(words[2]);
        return 0;
    }
    if (arguments[0] == "threads") {
        SaveAtOnce(arguments[1], std::stoi(arguments[2]));
        return 0;
    }
    const auto save = arguments[0] == "bob"     ? Save<CCBobVolume>
                      : arguments[0] == "vox"   ? Save<CRTVizVolume>
                      : arguments[0] == "bytes" ? Save<CAnalyzeVolume, 8>
                                                : Save<CAnalyzeVolume>;
    save(words[2], std::stoi(arguments[2]), std::stoi(arguments[3]));
    return 0;
}
