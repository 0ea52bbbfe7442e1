#pragma once

// WhisperModelEngine is the model engine on whisper.cpp: model files from a ModelInventory
// (ModelFileEngine) and WhisperTranscribers that decode with the model serving the dictation's
// language. It keeps that model loaded between dictations (LoadedModelCache): loadInBackground()
// loads and warms it up after start-up, and it is released after the idle time and loaded again
// at the next dictation. Built only when whisper.cpp is installed (KELVO_HAS_WHISPER).
//
// Threads: engine queries as ModelFileEngine; loadInBackground() and setIdleReleaseMinutes() from
// any thread. The inventory and the clock must outlive the engine; the engine must outlive its
// transcribers.

#include <functional>
#include <string>

#include "platform/Clock.h"
#include "platform/model/LoadedModelCache.h"
#include "platform/model/ModelFileEngine.h"
#include "platform/model/ProgressiveTranscriber.h"
#include "platform/whisper/WhisperDecoder.h"

namespace kelvo::platform {

class WhisperModelEngine final : public ModelFileEngine {
  public:
    using Log = std::function<void(const std::string&)>;

    // `log` receives diagnostic lines (model loaded, released, prompt shortened), without prefix.
    WhisperModelEngine(ModelInventory& inventory, Clock& clock, Log log = {},
                       ProgressiveTranscriber::Options options = {});

    std::unique_ptr<ModelTranscriber> makeTranscriber(const std::string& locale) override;

    // Starts loading the model that serves `locale` when one is installed; returns at once.
    void loadInBackground(const std::string& locale);
    void setIdleReleaseMinutes(int minutes);

    LoadedModelCache& cache() { return cache_; }

    // CPU threads for decoding: one per physical core but one, at least one and up to four.
    static int decodingThreads();
    // How the engine's decoders decode on this machine.
    static WhisperDecoder::Settings decoderSettings();
    // The short decode that readies a freshly loaded model (LoadedModelCache's warm-up).
    static void warmUp(SegmentDecoder& decoder);

  private:
    const Log log_;
    const ProgressiveTranscriber::Options options_;
    LoadedModelCache cache_;
};

}  // namespace kelvo::platform
