#pragma once

// Records the dictation requests the gesture recogniser sends ("startDictation fn", ...) and
// answers them with scripted results (all accepted by default).

#include <string>
#include <vector>

#include "KelvoVoiceMac/session/DictationRequestHandler.h"

namespace kelvo::test {

class FakeRequestHandler final : public app::DictationRequestHandler {
  public:
    bool startDictation(const std::string& trigger) override {
        requests.push_back("startDictation " + trigger);
        return acceptStart;
    }
    bool stopDictation(const std::string& trigger) override {
        requests.push_back("stopDictation " + trigger);
        return true;
    }
    bool discardDictation(const std::string& trigger) override {
        requests.push_back("discardDictation " + trigger);
        return true;
    }

    bool acceptStart = true;
    std::vector<std::string> requests;
};

}  // namespace kelvo::test
