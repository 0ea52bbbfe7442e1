// The evdev decoder fed through a pipe: the same `struct input_event` records a keyboard device
// delivers, without needing one.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "platform/linux/EvdevKeyDecoder.h"

namespace kelvo::platform {
namespace {

input_event record(unsigned short type, unsigned short code, int value) {
    input_event event{};
    event.type = type;
    event.code = code;
    event.value = value;
    return event;
}

class Pipe {
  public:
    Pipe() { EXPECT_EQ(pipe2(fds_, O_NONBLOCK | O_CLOEXEC), 0); }
    ~Pipe() {
        close(fds_[0]);
        closeWriter();
    }
    int reader() const { return fds_[0]; }
    // Writes bytes [from, to) of the records, so a test can split one across writes.
    void write(const std::vector<input_event>& events, std::size_t from = 0,
               std::size_t to = std::size_t(-1)) {
        auto* bytes = reinterpret_cast<const char*>(events.data());
        to = std::min(to, events.size() * sizeof(input_event));
        ASSERT_EQ(::write(fds_[1], bytes + from, to - from), ssize_t(to - from));
    }
    void closeWriter() {
        if (fds_[1] >= 0) {
            close(fds_[1]);
            fds_[1] = -1;
        }
    }

  private:
    int fds_[2] = {-1, -1};
};

// Checked after every record, not only at the end: an autorepeat read as a release would end the
// hold at the first repeat and the later release would hide it.
TEST(EvdevKeyDecoderTest, ReportsPressAndReleaseOfItsKeyOnlyAcrossSplitRecords) {
    EvdevKeyDecoder decoder(KEY_RIGHTCTRL);
    std::vector<bool> changes;
    auto onChange = [&](bool down) { changes.push_back(down); };
    Pipe pipe;
    const std::vector<std::pair<input_event, std::vector<bool>>> script = {
        {record(EV_MSC, MSC_SCAN, 0x700e4), {}},
        {record(EV_KEY, KEY_A, 1), {}},
        {record(EV_KEY, KEY_RIGHTCTRL, 1), {true}},
        {record(EV_SYN, SYN_REPORT, 0), {true}},
        {record(EV_KEY, KEY_RIGHTCTRL, 2), {true}},
        {record(EV_KEY, KEY_RIGHTCTRL, 2), {true}},
        {record(EV_SYN, SYN_REPORT, 0), {true}},
        {record(EV_KEY, KEY_A, 0), {true}},
        {record(EV_KEY, KEY_RIGHTCTRL, 0), {true, false}},
    };
    for (const auto& [event, expected] : script) {
        SCOPED_TRACE(testing::Message() << "type " << event.type << " code " << event.code
                                        << " value " << event.value);
        // Each record arrives in two pieces; the first alone changes nothing.
        const auto before = changes;
        pipe.write({event}, 0, 5);
        EXPECT_EQ(decoder.readFrom(pipe.reader(), onChange), EvdevKeyDecoder::ReadStatus::drained);
        EXPECT_EQ(changes, before);
        pipe.write({event}, 5);
        EXPECT_EQ(decoder.readFrom(pipe.reader(), onChange), EvdevKeyDecoder::ReadStatus::drained);
        EXPECT_EQ(changes, expected);
        EXPECT_EQ(decoder.isDown(), expected.size() == 1);
    }
    pipe.closeWriter();
    EXPECT_EQ(decoder.readFrom(pipe.reader(), onChange), EvdevKeyDecoder::ReadStatus::endOfStream);
    // An unplugged device fails its reads (ENODEV); any error but EAGAIN reads the same.
    EXPECT_EQ(decoder.readFrom(-1, onChange), EvdevKeyDecoder::ReadStatus::failed);
}

TEST(EvdevKeyDecoderTest, AfterDroppedEventsWaitsForTheReportAndAsksForTheRealState) {
    EvdevKeyDecoder decoder(KEY_RIGHTCTRL);
    std::vector<bool> changes;
    auto onChange = [&](bool down) { changes.push_back(down); };
    Pipe pipe;
    pipe.write({
        record(EV_SYN, SYN_DROPPED, 0),
        record(EV_KEY, KEY_RIGHTCTRL, 1),  // half a report: not to be trusted
        record(EV_SYN, SYN_REPORT, 0),
    });
    decoder.readFrom(pipe.reader(), onChange);
    EXPECT_TRUE(changes.empty());
    ASSERT_TRUE(decoder.resyncNeeded());
    // The device says the key is down (EVIOCGKEY in the monitor).
    decoder.resynchronise(true, onChange);
    EXPECT_FALSE(decoder.resyncNeeded());
    EXPECT_EQ(changes, (std::vector<bool>{true}));

    pipe.write({record(EV_KEY, KEY_RIGHTCTRL, 0), record(EV_SYN, SYN_REPORT, 0)});
    decoder.readFrom(pipe.reader(), onChange);
    EXPECT_EQ(changes, (std::vector<bool>{true, false}));
}

}  // namespace
}  // namespace kelvo::platform
