#pragma once

// Records what the session shows: every refresh with its state and the enabled flag of the
// dictation menu item, mirrored into an optional journal ("status: idle", "item: disabled").

#include <string>
#include <vector>

#include "KelvoVoiceMac/session/StatusItemPresenter.h"
#include "fakes/Journal.h"

namespace kelvo::test {

class FakeStatusItemPresenter final : public app::StatusItemPresenter {
  public:
    explicit FakeStatusItemPresenter(std::vector<std::string>* journal = nullptr)
        : journal_{journal} {}

    void refresh(app::RecordingState state) override {
        refreshes.push_back(state);
        journal_.note(state == app::RecordingState::idle ? "status: idle" : "status: recording");
    }
    void setDictationItemEnabled(bool enabled) override {
        dictationItemEnabled = enabled;
        journal_.note(enabled ? "item: enabled" : "item: disabled");
    }

    std::vector<app::RecordingState> refreshes;
    bool dictationItemEnabled = false;

  private:
    Journal journal_;
};

}  // namespace kelvo::test
