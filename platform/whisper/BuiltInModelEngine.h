#pragma once

// BuiltInModelEngine is the on-device model engine this build offers, made one way for the
// application and for `kelvo dictate`: a WhisperModelEngine over the model inventory when
// whisper.cpp was found at build time (KELVO_HAS_WHISPER), else an UnavailableModelEngine, whose
// readiness check sends every dictation to the segment recogniser. loadInBackground() loads and
// warms up the model that serves a locale so that the first dictation does not wait for it; the
// model is released after the idle minutes and loaded again, on the speech service's start-up
// thread, by the next dictation. Without whisper.cpp both calls do nothing.
//
// Made and destroyed on the main thread (the idle release is a callback of `clock`); engine(),
// loadInBackground() and setIdleReleaseMinutes() may be called from any thread. The inventory and
// the clock must outlive it; the destructor waits for a background load to finish.

#include <functional>
#include <memory>
#include <string>

#include "core/services/ModelInventory.h"
#include "platform/Clock.h"
#include "platform/ModelEngine.h"

namespace kelvo::platform {

class WhisperModelEngine;

class BuiltInModelEngine {
  public:
    using Log = std::function<void(const std::string&)>;

    // `log` receives whole lines ("[KelvoVoice] Model ...": loaded, released, prompt shortened),
    // from whichever thread the engine is on.
    BuiltInModelEngine(ModelInventory& inventory, Clock& clock, int idleReleaseMinutes,
                       Log log = {});
    ~BuiltInModelEngine();

    BuiltInModelEngine(const BuiltInModelEngine&) = delete;
    BuiltInModelEngine& operator=(const BuiltInModelEngine&) = delete;

    // Whether whisper.cpp is built in.
    static bool isBuilt();
    // The engine's name for the start-up log.
    static const char* name();

    ModelEngine& engine() { return *engine_; }

    // Starts loading the model that serves `locale`, if one is installed; returns at once.
    void loadInBackground(const std::string& locale);
    // From the next idle period on; at least one minute.
    void setIdleReleaseMinutes(int minutes);

  private:
    std::unique_ptr<ModelEngine> engine_;
    WhisperModelEngine* whisper_ = nullptr;  // engine_, when whisper.cpp is built in
};

}  // namespace kelvo::platform
