#pragma once

// WhisperTranscriber is one dictation's transcriber on the whisper.cpp engine: the progressive
// transcriber (partials from the open segment, finals at pauses, guards) over the WhisperDecoder
// of the model that serves its language, which prepare() takes from the engine's loaded-model
// cache (loading it there if the background load has not). Made by WhisperModelEngine; see
// ProgressiveTranscriber for the threads.

#include "core/services/ModelInventory.h"
#include "platform/model/LoadedModelCache.h"
#include "platform/model/ProgressiveTranscriber.h"

namespace kelvo::platform {

class WhisperTranscriber final : public ProgressiveTranscriber {
  public:
    // `language` is a whisper language code ("ja"). The inventory and the cache must outlive
    // the transcriber.
    WhisperTranscriber(std::string language, const ModelInventory& inventory,
                       LoadedModelCache& cache, Options options, Log log = {});
};

}  // namespace kelvo::platform
