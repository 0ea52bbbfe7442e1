// The microphone list against the headless session's PulseAudio server, whose virtual microphone
// is the source "vmic" fed by the sink "vmic_sink".

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "core/support/Error.h"
#include "platform/linux/PulseAudioSourceList.h"

namespace kelvo::test {
namespace {

using platform::AudioSourceInfo;
using platform::PulseAudioSourceList;
using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::Field;
using ::testing::Not;

TEST(PulseAudioSourceListTest, ListsMicrophonesButNotTheMonitorsOfOutputs) {
    auto sources = PulseAudioSourceList::list();
    EXPECT_THAT(sources, Contains(Field(&AudioSourceInfo::name, "vmic")));
    EXPECT_THAT(sources, Not(Contains(Field(&AudioSourceInfo::name, EndsWith(".monitor")))));
    for (const auto& source : sources) {
        EXPECT_FALSE(source.description.empty()) << source.name;
    }
}

TEST(PulseAudioSourceListTest, AnUnreachableServerIsAnErrorNotAHang) {
    const char* previous = std::getenv("PULSE_SERVER");
    const std::string saved = previous != nullptr ? previous : "";
    setenv("PULSE_SERVER", "unix:/nonexistent/kelvo-no-server", 1);
    EXPECT_THROW(PulseAudioSourceList::list(std::chrono::seconds(30)), Error);
    if (previous != nullptr) {
        setenv("PULSE_SERVER", saved.c_str(), 1);
    } else {
        unsetenv("PULSE_SERVER");
    }
}

}  // namespace
}  // namespace kelvo::test
