#pragma once

// A KeyMonitor driven by the test: press()/release()/other() deliver events to the installed
// handler the way the real monitor would (from its own context; the service posts them to the
// main thread). Access is scripted: hasAccess answers the preflight, grantOnRequest the prompt.

#include <utility>

#include "platform/KeyMonitor.h"

namespace kelvo::test {

class ScriptedKeyMonitor final : public platform::KeyMonitor {
  public:
    bool hasListenAccess() const override { return hasAccess; }
    bool requestListenAccess() override {
        ++requestCount;
        hasAccess = grantOnRequest;
        return grantOnRequest;
    }
    void start(Handler newHandler) override {
        ++startCount;
        handler = std::move(newHandler);
    }

    void press(bool synthetic = false) { deliver({true, synthetic}); }
    void release(bool synthetic = false) { deliver({false, synthetic}); }
    // Another modifier changed while the trigger stays as it is.
    void other(bool triggerDown) { deliver({triggerDown, false}); }

    bool hasAccess = true;
    bool grantOnRequest = true;
    int requestCount = 0;
    int startCount = 0;
    Handler handler;

  private:
    void deliver(platform::TriggerKeyEvent event) {
        if (handler) {
            handler(event);
        }
    }
};

}  // namespace kelvo::test
