// The evdev decoder fed through a pipe: the same `struct input_event` records a keyboard device
// delivers, without needing one.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <functional>
#include <utility>
#include <vector>

#include "platform/linux/EvdevKeyDecoder.h"

namespace kelvo::platform {
namespace {

// A decoder of Right Ctrl that reads from a pipe.
class EvdevKeyDecoderTest : public ::testing::Test {
  protected:
    EvdevKeyDecoderTest() { EXPECT_EQ(pipe2(fds, O_NONBLOCK | O_CLOEXEC), 0); }
    ~EvdevKeyDecoderTest() override {
        close(fds[0]);
        close(fds[1]);  // -1 once a test closed it: a harmless EBADF
    }

    // Writes bytes [from, to) of the records, so a test can split one across writes.
    void write(const std::vector<input_event>& events, std::size_t from = 0,
               std::size_t to = std::size_t(-1)) {
        auto* bytes = reinterpret_cast<const char*>(events.data());
        to = std::min(to, events.size() * sizeof(input_event));
        ASSERT_EQ(::write(fds[1], bytes + from, to - from), ssize_t(to - from));
    }
    EvdevKeyDecoder::ReadStatus read() { return decoder.readFrom(fds[0], onChange); }

    int fds[2] = {-1, -1};
    EvdevKeyDecoder decoder{KEY_RIGHTCTRL};
    std::vector<bool> changes;
    std::function<void(bool)> onChange = [this](bool down) { changes.push_back(down); };
};

// Checked after every record, not only at the end: an autorepeat read as a release would end the
// hold at the first repeat and the later release would hide it.
TEST_F(EvdevKeyDecoderTest, ReportsPressAndReleaseOfItsKeyOnlyAcrossSplitRecords) {
    const std::vector<std::pair<input_event, std::vector<bool>>> script = {
        // clang-format off
        {{{}, EV_MSC, MSC_SCAN, 0x700e4}, {}},
        {{{}, EV_KEY, KEY_A, 1}, {}},
        {{{}, EV_KEY, KEY_RIGHTCTRL, 1}, {true}},
        {{{}, EV_SYN, SYN_REPORT, 0}, {true}},
        {{{}, EV_KEY, KEY_RIGHTCTRL, 2}, {true}},
        {{{}, EV_KEY, KEY_RIGHTCTRL, 2}, {true}},
        {{{}, EV_SYN, SYN_REPORT, 0}, {true}},
        {{{}, EV_KEY, KEY_A, 0}, {true}},
        {{{}, EV_KEY, KEY_RIGHTCTRL, 0}, {true, false}},
        // clang-format on
    };
    for (const auto& [event, expected] : script) {
        SCOPED_TRACE(testing::Message() << "type " << event.type << " code " << event.code
                                        << " value " << event.value);
        // Each record arrives in two pieces; the first alone changes nothing.
        const auto before = changes;
        write({event}, 0, 5);
        EXPECT_EQ(read(), EvdevKeyDecoder::ReadStatus::drained);
        EXPECT_EQ(changes, before);
        write({event}, 5);
        EXPECT_EQ(read(), EvdevKeyDecoder::ReadStatus::drained);
        EXPECT_EQ(changes, expected);
        EXPECT_EQ(decoder.isDown(), expected.size() == 1);
    }
    close(fds[1]);
    fds[1] = -1;
    EXPECT_EQ(read(), EvdevKeyDecoder::ReadStatus::endOfStream);
    // An unplugged device fails its reads (ENODEV); any error but EAGAIN reads the same.
    EXPECT_EQ(decoder.readFrom(-1, onChange), EvdevKeyDecoder::ReadStatus::failed);
}

TEST_F(EvdevKeyDecoderTest, AfterDroppedEventsWaitsForTheReportAndAsksForTheRealState) {
    write({
        {{}, EV_SYN, SYN_DROPPED, 0},
        {{}, EV_KEY, KEY_RIGHTCTRL, 1},  // half a report: not to be trusted
        {{}, EV_SYN, SYN_REPORT, 0},
    });
    read();
    EXPECT_TRUE(changes.empty());
    ASSERT_TRUE(decoder.resyncNeeded());
    // The device says the key is down (EVIOCGKEY in the monitor).
    decoder.resynchronise(true, onChange);
    EXPECT_FALSE(decoder.resyncNeeded());
    EXPECT_EQ(changes, (std::vector<bool>{true}));

    write({{{}, EV_KEY, KEY_RIGHTCTRL, 0}, {{}, EV_SYN, SYN_REPORT, 0}});
    read();
    EXPECT_EQ(changes, (std::vector<bool>{true, false}));
}

}  // namespace
}  // namespace kelvo::platform
