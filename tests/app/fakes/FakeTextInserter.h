#pragma once

// Records every insertion (text and restore flag), takes insertDelay on the fake clock and yields
// the scripted result. Mirrors into an optional journal ("insert: <text>").

#include <QCoroTask>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "KelvoVoiceMac/session/ClockSleep.h"
#include "KelvoVoiceMac/session/DictationTextInserter.h"
#include "fakes/FakeClock.h"
#include "fakes/Journal.h"

namespace kelvo::test {

class FakeTextInserter final : public app::DictationTextInserter {
  public:
    FakeTextInserter(FakeClock& clock, std::vector<std::string>* journal = nullptr)
        : clock_(clock), journal_{journal} {}

    QCoro::Task<bool> insert(std::string text, bool restore) override {
        journal_.note("insert: " + text);
        insertions.emplace_back(text, restore);
        co_await app::sleepFor(clock_, insertDelay);
        if (throwing) {
            throw std::runtime_error("accessibility bus went away");
        }
        co_return result;
    }

    platform::Clock::Duration insertDelay = std::chrono::milliseconds(30);
    bool result = true;
    bool throwing = false;
    std::vector<std::pair<std::string, bool>> insertions;

  private:
    FakeClock& clock_;
    Journal journal_;
};

}  // namespace kelvo::test
