#include <gtest/gtest.h>

#include <QCoroTask>
#include <algorithm>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

#include "KelvoVoiceMac/session/Channel.h"
#include "fakes/TestEventLoop.h"
#include "tests/support/WaitUntil.h"

namespace kelvo::test {
namespace {

using app::Channel;

QCoro::Task<> readAll(std::shared_ptr<Channel<int>> channel, std::vector<int>& received,
                      bool& ended, std::thread::id& resumedOn) {
    while (std::optional<int> value = co_await channel->next()) {
        received.push_back(*value);
        resumedOn = std::this_thread::get_id();
    }
    ended = true;
}

TEST(ChannelTest, AwaitingReaderResumesOnItsOwnThreadForValuesAndEndSentFromAnotherThread) {
    ensureCoreApplication();
    auto channel = std::make_shared<Channel<int>>();
    std::vector<int> received;
    bool ended = false;
    std::thread::id resumedOn;
    readAll(channel, received, ended, resumedOn);
    EXPECT_TRUE(received.empty());

    std::thread writer([channel] {
        for (int i = 1; i <= 500; ++i) {
            channel->send(i);
        }
        channel->close();
        channel->close();    // harmless twice
        channel->send(999);  // after close: ignored
    });
    writer.join();
    EXPECT_TRUE(received.empty()) << "resumption must be posted, never run on the writer";

    ASSERT_TRUE(waitUntil([&] { return ended; }));
    std::vector<int> sent(500);
    std::iota(sent.begin(), sent.end(), 1);
    EXPECT_EQ(received, sent);
    EXPECT_EQ(resumedOn, std::this_thread::get_id());
}

// With a capacity, which holds fast writers back without losing or reordering their values.
TEST(ChannelTest, BlockingReceiveWakesForValuesAndCloseFromOtherThreads) {
    auto channel = std::make_shared<Channel<int>>(8);
    std::vector<int> received;
    std::size_t mostBuffered = 0;
    std::thread reader([&] {
        while (std::optional<int> value = channel->receive()) {
            received.push_back(*value);
            mostBuffered = std::max(mostBuffered, channel->bufferedCount());
        }
    });
    std::vector<std::thread> writers;
    for (int w = 0; w < 4; ++w) {
        writers.emplace_back([channel, w] {
            for (int i = 0; i < 250; ++i) {
                channel->send(w * 1000 + i);
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    channel->close();
    reader.join();
    EXPECT_EQ(channel->receive(), std::nullopt) << "the end stays the end";
    ASSERT_EQ(received.size(), 1000u);
    EXPECT_LE(mostBuffered, 8u);
    // Each writer's values keep their order.
    std::vector<int> last(4, -1);
    for (int value : received) {
        EXPECT_GT(value % 1000, last[value / 1000]);
        last[value / 1000] = value % 1000;
    }
}

}  // namespace
}  // namespace kelvo::test
