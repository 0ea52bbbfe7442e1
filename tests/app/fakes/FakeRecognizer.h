#pragma once

// A scripted recogniser: startTranscription() hands out a fresh event channel the test writes
// into (send()), stop() takes stopDelay on the fake clock, delivers finalOnStop when set (the
// recogniser's last result), and closes the stream; stopAfterCatchingUp() is counted, then
// stop(). Mirrors calls into an optional journal ("speech: hints N", "speech: start",
// "speech: stop").

#include <QCoroTask>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KelvoVoiceMac/session/ClockSleep.h"
#include "KelvoVoiceMac/session/DictationRecognizer.h"
#include "fakes/FakeClock.h"
#include "fakes/Journal.h"

namespace kelvo::test {

class FakeRecognizer final : public app::DictationRecognizer {
  public:
    FakeRecognizer(FakeClock& clock, std::vector<std::string>* journal = nullptr)
        : clock_(clock), journal_{journal} {}

    void setContextualStrings(std::vector<std::string> strings) override {
        journal_.note("speech: hints " + std::to_string(strings.size()));
        contextualStrings = std::move(strings);
    }

    std::shared_ptr<app::Channel<app::TranscriptionEvent>> startTranscription(
        std::shared_ptr<app::Channel<app::AudioBuffer>> audio) override {
        journal_.note("speech: start");
        audioStream = std::move(audio);
        events = std::make_shared<app::Channel<app::TranscriptionEvent>>();
        return events;
    }

    QCoro::Task<> stop() override {
        journal_.note("speech: stop");
        ++stopCount;
        co_await app::sleepFor(clock_, stopDelay);
        if (events) {
            if (finalOnStop) {
                events->send(app::TranscriptionEvent::final_(*finalOnStop));
            }
            events->close();
        }
        journal_.note("speech: stopped");
    }
    QCoro::Task<> stopAfterCatchingUp() override {
        ++catchUpStopCount;
        return stop();
    }

    void send(app::TranscriptionEvent event) { events->send(std::move(event)); }

    platform::Clock::Duration stopDelay = std::chrono::milliseconds(20);
    std::optional<std::string> finalOnStop;
    std::vector<std::string> contextualStrings;
    std::shared_ptr<app::Channel<app::AudioBuffer>> audioStream;
    std::shared_ptr<app::Channel<app::TranscriptionEvent>> events;
    int stopCount = 0;
    int catchUpStopCount = 0;

  private:
    FakeClock& clock_;
    Journal journal_;
};

}  // namespace kelvo::test
