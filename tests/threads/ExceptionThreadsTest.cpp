// Exceptions of vectors and matrices that several threads throw.
#include "AtOnce.h"
#include "math/Show.h"

#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sstream>

namespace {

constexpr std::size_t kThrown = 300;
constexpr std::size_t kMostBytes = 1U << 26;  // of a mapping; a sanitizer's own are larger by far

#if defined(__SANITIZE_THREAD__)
constexpr bool kReadsMemory = false;  // it has too much of it
#else
constexpr bool kReadsMemory = true;
#endif

// The text of each buffer of dimension errors, which nothing but a look into the memory of the process can read.
std::set<std::string> BufferTexts() {
    const std::string prefix = "Errore di dimensioni - ";
    std::set<std::string> texts;
    std::ifstream maps("/proc/self/maps"), memory("/proc/self/mem", std::ios::binary);
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t first = 0, last = 0;
        if (line.find("rw-p") == line.npos) continue;
        std::istringstream(line.replace(line.find('-'), 1, " ")) >> std::hex >> first >> last;
        if (last - first > kMostBytes) continue;
        std::string bytes(last - first, '\0');
        memory.clear();
        memory.seekg(static_cast<std::streamoff>(first)).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        for (std::size_t at = 0; (at = bytes.find(prefix, at)) != bytes.npos;) {
            at += prefix.size();
            texts.insert(bytes.substr(at, bytes.find('\0', at) - at));
        }
    }
    return texts;
}

}  // namespace

TEST(ExceptionThreads, EachHasTextsOfItsOwn) {
    DimException main("main");  // keeps the module's buffers: the threads get others
    Latch thrown(kThreads + 1), read(1);
    std::set<std::string> texts;
    std::thread reader([&] {
        thrown.ArriveAndWait();
        if (kReadsMemory) texts = BufferTexts();
        read.CountDown();
    });
    const auto caught = AtOnce([&](int number) {
        const std::string name(1, static_cast<char>('0' + number));
        std::size_t count = 0;
        for (std::size_t i = 0; i < kThrown; ++i) {
            try {
                if (i % 2 == 0) throw DimException(name.c_str());
                FVector(2) / 0.0;
            } catch (const DimException&) {
                ++count;
            } catch (const ZeroException&) {
                ++count;
            }
        }
        thrown.ArriveAndWait();
        read.Wait();
        return std::to_string(count);
    });
    reader.join();
    EXPECT_EQ(caught, std::vector<std::string>(kThreads, std::to_string(kThrown)));
    const auto found = texts.lower_bound("main");
    if (found == texts.end() || !found->starts_with("main")) GTEST_SKIP() << "no look into the memory";
    for (int number = 0; number < kThreads; ++number) {
        EXPECT_TRUE(texts.contains(std::string(kThrown / 2, static_cast<char>('0' + number)))) << number;
    }
}
