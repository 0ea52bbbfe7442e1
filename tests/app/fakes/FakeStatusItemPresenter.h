#pragma once

// Records what the session shows: every refresh with its state and the enabled flag of the
// dictation menu item, mirrored into an optional journal ("status: idle", "item: disabled").

#include <string>
#include <vector>

#include "KelvoVoiceMac/session/StatusItemPresenter.h"

namespace kelvo::test {

class FakeStatusItemPresenter final : public app::StatusItemPresenter {
  public:
    explicit FakeStatusItemPresenter(std::vector<std::string>* journal = nullptr)
        : journal_(journal) {}

    void refresh(app::RecordingState state) override {
        refreshes.push_back(state);
        if (journal_ != nullptr) {
            journal_->push_back(state == app::RecordingState::idle ? "status: idle"
                                                                   : "status: recording");
        }
    }
    void setDictationItemEnabled(bool enabled) override {
        dictationItemEnabled = enabled;
        if (journal_ != nullptr) {
            journal_->push_back(enabled ? "item: enabled" : "item: disabled");
        }
    }

    std::vector<app::RecordingState> refreshes;
    bool dictationItemEnabled = false;

  private:
    std::vector<std::string>* journal_;
};

}  // namespace kelvo::test
