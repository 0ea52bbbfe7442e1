#pragma once

// SpeechBackends is the speech half of the application's wiring, built one way for the application
// and for `kelvo dictate`, so that both recognise with the same engines and the same models: the
// model inventory over the user's models folder, the built-in model engine over it (whisper.cpp
// when built in), that engine as the recognition-engine setting lets SpeechService see it
// (PreferredModelEngine), and the PocketSphinx segment recognisers, which find the user's models
// before Debian's. Qt Core at most, so that the command-line tool links it without Qt Gui.
//
// Made and destroyed on the main thread; the clock must outlive it. What it hands out lives as
// long as it does. Nothing is loaded at construction: callers start a model load themselves
// (builtInModelEngine().loadInBackground()) when they know the locale.

#include <functional>
#include <optional>
#include <string>

#include "KelvoVoiceMac/session/PreferredModelEngine.h"
#include "core/services/ModelCatalog.h"
#include "core/services/ModelInventory.h"
#include "core/support/DataLocations.h"
#include "platform/Clock.h"
#include "platform/linux/PocketSphinxRecognizerProvider.h"
#include "platform/whisper/BuiltInModelEngine.h"

namespace kelvo::app {

class SpeechBackends {
  public:
    struct Options {
        // The user's folders; throws kelvo::Error from the constructor when there is no data home.
        DataLocations locations;
        ModelCatalog catalog;
        ModelInventory::Settings modelSettings;
        int modelIdleReleaseMinutes;
        // The recognition-engine setting, read at each dictation: false means "fallback".
        std::function<bool()> isModelEngineWanted;
        // The model engine's log lines ("[KelvoVoice] Model ...").
        platform::BuiltInModelEngine::Log log;
        // The locale whose PocketSphinx model serves when the dictation's own has none.
        std::optional<std::string> systemLocale;
    };

    SpeechBackends(Options options, platform::Clock& clock);

    SpeechBackends(const SpeechBackends&) = delete;
    SpeechBackends& operator=(const SpeechBackends&) = delete;

    ModelInventory& modelInventory() { return modelInventory_; }
    platform::BuiltInModelEngine& builtInModelEngine() { return builtInModelEngine_; }
    // The model engine as SpeechService should see it: none while the setting asks for the
    // fallback.
    platform::ModelEngine& modelEngine() { return modelEngine_; }
    platform::PocketSphinxRecognizerProvider& segmentRecognizers() { return segmentRecognizers_; }

  private:
    ModelInventory modelInventory_;
    platform::BuiltInModelEngine builtInModelEngine_;
    PreferredModelEngine modelEngine_;
    platform::PocketSphinxRecognizerProvider segmentRecognizers_;
};

}  // namespace kelvo::app
