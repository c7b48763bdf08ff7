#include <Korvane/Korvane.h>

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Seen = std::vector<short>;

struct Recorder : CPercent {
    bool OnProgress(short percent) override { return m_Seen.push_back(percent), percent == 66; }
    Seen m_Seen;
};

// What the handler was told for these portions of a total.
Seen Told(long total, const std::vector<long>& deltas) {
    Recorder recorder;
    recorder.SetTotElab(total);
    for (const long delta : deltas) {
        const bool stop = recorder.FireProgress(delta);
        EXPECT_EQ(stop, recorder.GetPercent() == 66);
    }
    return recorder.m_Seen;
}

std::string g_log;

struct Consumer : CObserver, CPercentConsumer {
    explicit Consumer(char name) : m_Name(name) {}
    void OnChanged(CObserved* source) override { CPercentConsumer::OnChanged(source); }
    bool OnProgress(short percent) override { return g_log += m_Name + std::to_string(percent) + " ", m_bGoOn; }
    char m_Name;
    bool m_bGoOn = true;
};

// What the consumers were told, and the answer to the caller.
std::string Advance(CPercentGenerator& generator, long delta) {
    const bool stop = generator.SetProgress(delta);
    return std::exchange(g_log, std::string()) + (stop ? "stop" : "on");
}

}  // namespace

TEST(CPercent, ReportsEachChangeOnceIn32BitsAndReturnsTheAnswer) {
    EXPECT_EQ(Told(3, {1, 0, 1, 1}), (Seen{33, 66, 100}));
    EXPECT_EQ(Told(1000, {1, 8}), Seen{});
    EXPECT_EQ(Told(0, {1}), Seen{100});
    // Beyond the total: 200 and 200 differ from the stored 100, exactly 100 does not; going back is a change.
    EXPECT_EQ(Told(10, {20, 0, -10, -15}), (Seen{100, 100, -50}));
    EXPECT_EQ(Told(100000000, {21474836, 1}), (Seen{21, -21}));  // * 100 wraps to -2147483596
    EXPECT_EQ(Told(1, {2147483647, 1}), (Seen{-100, 0}));        // wraps to -100; the sum to -2^31
    EXPECT_EQ(Told(1, {400}), Seen{-25536});                     // the low 16 bits of 40000, not limited to 100
    EXPECT_EQ(Told(-1, {536870912}), Seen{0});  // -2^31 by -1 does not fit; low 16 bits of what it wraps to
    constexpr long kHigh = sizeof(long) > 4 ? static_cast<long>(1LL << 40) : 0;
    EXPECT_EQ(Told(kHigh + 4, {kHigh + 1}), Seen{25});
    EXPECT_TRUE(CPercent().FireProgress(1)) << "who does not override the handler is stopped";
    struct Throwing : CPercent {
        bool OnProgress(short percent) override { throw std::to_string(percent); }
    };
    EXPECT_THROW(Throwing().FireProgress(1), std::string) << "passes through the module";
}

TEST(CPercentGenerator, TellsObserversInOrderAndRemembersTheRequestToStop) {
    Consumer a('a'), b('b');
    CPercentGenerator generator;
    generator.SetTotElab(4);
    for (Consumer* const consumer : {&a, &b, &a}) generator.AddObserver(consumer);
    b.m_bGoOn = false;
    EXPECT_EQ(Advance(generator, 1), "a25 b25 a25 stop");
    b.m_bGoOn = true;
    EXPECT_EQ(Advance(generator, 0), "on");  // no change
    CPercentGenerator copy(generator);
    EXPECT_EQ(Advance(generator, 1), "a50 b50 a50 stop");
    generator.StartProgress();
    EXPECT_EQ(Advance(generator, 9), "a100 b100 a100 on");

    EXPECT_EQ(Advance(copy, 2), "a75 b75 a75 stop");  // counters and request came along
    copy.Clear();
    EXPECT_EQ(Advance(copy, 1), "stop");
    a.OnChanged(&b);  // not a generator
    EXPECT_EQ(g_log, "");
}
