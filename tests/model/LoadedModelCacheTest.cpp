// The loaded-model cache with a scripted loader and a fake clock: background load with warm-up,
// one load for many dictations, release after the idle time (never while a dictation holds the
// model), reload on the next use, a new idle time from the preferences, failures.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "ScriptedDecoder.h"
#include "fakes/FakeClock.h"
#include "platform/SpeechEngineError.h"
#include "platform/model/LoadedModelCache.h"
#include "tests/support/WaitUntil.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;
using platform::LoadedModelCache;

class LoadedModelCacheTest : public ::testing::Test {
  protected:
    FakeClock clock;
    std::atomic<std::size_t> loads = 0;
    // Filled on the loading thread; read once the load is over.
    std::vector<platform::SegmentDecoder*> warmUps;
    std::atomic<bool> failLoads = false;
    // Last: it uses everything above and must go first.
    LoadedModelCache cache{
        [this](const std::filesystem::path& path) -> std::shared_ptr<platform::SegmentDecoder> {
            ++loads;
            if (failLoads) {
                throw platform::SpeechEngineError("cannot read " + path.string());
            }
            return std::make_shared<ScriptedDecoder>();
        },
        [this](platform::SegmentDecoder& decoder) { warmUps.push_back(&decoder); }, clock, 10min};
};

TEST_F(LoadedModelCacheTest, LoadsOnceWarmsUpAndReleasesAfterIdleTime) {
    cache.preload("/models/small.bin");
    ASSERT_TRUE(waitUntil([&] { return !cache.isLoading(); }));
    EXPECT_EQ(cache.loadedModel(), std::filesystem::path("/models/small.bin"));
    cache.preload("/models/small.bin");

    std::shared_ptr<platform::SegmentDecoder> first = cache.acquire("/models/small.bin");
    EXPECT_EQ(loads, 1u);
    ASSERT_EQ(warmUps.size(), 1u);
    EXPECT_EQ(warmUps[0], first.get());

    // While a dictation holds the model, no idle time runs out.
    clock.advance(30min);
    EXPECT_TRUE(cache.loadedModel());
    first.reset();
    clock.advance(9min);
    EXPECT_TRUE(cache.loadedModel());
    std::shared_ptr<platform::SegmentDecoder> second = cache.acquire("/models/small.bin");
    second.reset();
    clock.advance(9min + 59s);
    EXPECT_TRUE(cache.loadedModel());
    clock.advance(1s);
    EXPECT_FALSE(cache.loadedModel());

    // The next dictation loads it again; a shorter idle time from the settings applies at once.
    second = cache.acquire("/models/small.bin");
    EXPECT_EQ(loads, 2u);
    EXPECT_EQ(warmUps.size(), 2u);
    second.reset();
    cache.setIdleRelease(1min);
    clock.advance(1min);
    EXPECT_FALSE(cache.loadedModel());

    // Another model replaces the loaded one.
    auto small = cache.acquire("/models/small.bin");
    auto base = cache.acquire("/models/base.bin");
    EXPECT_EQ(cache.loadedModel(), std::filesystem::path("/models/base.bin"));
    EXPECT_NE(small.get(), base.get());
}

TEST_F(LoadedModelCacheTest, FailedLoadsAreReportedAndRetried) {
    failLoads = true;
    cache.preload("/models/broken.bin");
    ASSERT_TRUE(waitUntil([&] { return !cache.isLoading(); }));
    EXPECT_FALSE(cache.loadedModel());
    EXPECT_THROW(cache.acquire("/models/broken.bin"), platform::SpeechEngineError);
    failLoads = false;
    EXPECT_NE(cache.acquire("/models/broken.bin"), nullptr);
    EXPECT_EQ(loads, 3u);
}

}  // namespace
}  // namespace kelvo::test
