#include <gtest/gtest.h>

#include <QCoroTask>
#include <chrono>
#include <vector>

#include "KelvoVoiceMac/session/ClockSleep.h"
#include "fakes/FakeClock.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;

using Events = std::vector<std::pair<std::string, bool>>;

QCoro::Task<> sleepAndRecord(platform::Clock& clock, platform::Clock::Duration delay,
                             std::optional<app::CancellationToken> token, Events& events,
                             std::string name) {
    bool completed = co_await app::sleepFor(clock, delay, std::move(token));
    events.emplace_back(std::move(name), completed);
}

TEST(ClockSleepTest, ResumesAtTheDueTimeOrWithFalseOnceCancelledNeverInline) {
    FakeClock clock;
    Events events;
    sleepAndRecord(clock, 650ms, std::nullopt, events, "drain");
    sleepAndRecord(clock, 0ms, std::nullopt, events, "zero");
    EXPECT_TRUE(events.empty()) << "a zero wait must not complete inline";
    clock.runPending();
    EXPECT_EQ(events, (Events{{"zero", true}}));
    clock.advance(649ms);
    EXPECT_EQ(events.size(), 1u);
    clock.advance(1ms);
    EXPECT_EQ(events, (Events{{"zero", true}, {"drain", true}}));

    // Cancelled: resumes with false, not inline, and leaves no timer behind.
    app::CancellationToken token;
    sleepAndRecord(clock, 400ms, token, events, "tap");
    clock.advance(100ms);
    token.cancel();
    EXPECT_EQ(events.size(), 2u) << "the canceller finishes its own step first";
    clock.runPending();
    EXPECT_EQ(events.back(), std::make_pair(std::string("tap"), false));
    clock.advance(1s);
    EXPECT_EQ(clock.pendingCount(), 0u);

    app::CancellationToken already;
    already.cancel();
    sleepAndRecord(clock, 400ms, already, events, "late");
    EXPECT_EQ(events, (Events{{"zero", true}, {"drain", true}, {"tap", false}, {"late", false}}));
}

}  // namespace
}  // namespace kelvo::test
