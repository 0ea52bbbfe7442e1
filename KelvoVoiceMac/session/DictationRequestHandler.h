#pragma once

// DictationRequestHandler is the request side of the dictation session as the gesture recogniser
// sees it; MenuBarManager implements it. Each request is a synchronous main-thread call tagged
// with the trigger that sent it ("menu", "fn", "fn-hold", "fn-toggle-off", "fn-tap"); it returns
// at once, true when accepted and false when ignored, and never fails.

#include <string>

namespace kelvo::app {

class DictationRequestHandler {
  public:
    virtual ~DictationRequestHandler() = default;

    virtual bool startDictation(const std::string& trigger) = 0;
    virtual bool stopDictation(const std::string& trigger) = 0;
    virtual bool discardDictation(const std::string& trigger) = 0;
};

}  // namespace kelvo::app
