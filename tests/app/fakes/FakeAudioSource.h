#pragma once

// A microphone stand-in: start() takes startDelay on the fake clock (the microphone opening),
// then throws failure when one is set, else yields a fresh audio channel; stop() closes it. Calls
// are counted and mirrored into an optional journal ("capture: start", "capture: started",
// "capture: stop").

#include <QCoroTask>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KelvoVoiceMac/session/ClockSleep.h"
#include "KelvoVoiceMac/session/DictationAudioSource.h"
#include "core/support/Error.h"
#include "fakes/FakeClock.h"
#include "fakes/Journal.h"

namespace kelvo::test {

class FakeAudioSource final : public app::DictationAudioSource {
  public:
    FakeAudioSource(FakeClock& clock, std::vector<std::string>* journal = nullptr)
        : clock_(clock), journal_{journal} {}

    QCoro::Task<std::shared_ptr<app::Channel<app::AudioBuffer>>> start() override {
        journal_.note("capture: start");
        co_await app::sleepFor(clock_, startDelay);
        if (failure) {
            journal_.note("capture: failed");
            throw Error(*failure);
        }
        audio = std::make_shared<app::Channel<app::AudioBuffer>>();
        journal_.note("capture: started");
        // A copy: QCoro 0.8's return_value(U&&) would move out of the member.
        std::shared_ptr<app::Channel<app::AudioBuffer>> result = audio;
        co_return result;
    }

    void stop() override {
        ++stopCount;
        journal_.note("capture: stop");
        if (audio) {
            audio->close();
        }
    }

    platform::Clock::Duration startDelay = std::chrono::milliseconds(50);
    std::optional<std::string> failure;
    std::shared_ptr<app::Channel<app::AudioBuffer>> audio;
    int stopCount = 0;

  private:
    FakeClock& clock_;
    Journal journal_;
};

}  // namespace kelvo::test
