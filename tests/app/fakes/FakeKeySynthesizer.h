#pragma once

// Counts paste chords; fails when told to; onPaste lets a test script the target's reaction
// (for instance fetching the clipboard a few milliseconds later).

#include <functional>

#include "platform/KeySynthesizer.h"

namespace kelvo::test {

class FakeKeySynthesizer final : public platform::KeySynthesizer {
  public:
    bool sendPaste() override {
        ++pasteCount;
        if (fails) {
            return false;
        }
        if (onPaste) {
            onPaste();
        }
        return true;
    }

    bool fails = false;
    int pasteCount = 0;
    std::function<void()> onPaste;
};

}  // namespace kelvo::test
