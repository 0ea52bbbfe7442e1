#include "platform/whisper/WhisperTranscriber.h"

#include "platform/SpeechEngineError.h"

namespace kelvo::platform {

WhisperTranscriber::WhisperTranscriber(std::string language, const ModelInventory& inventory,
                                       LoadedModelCache& cache, Options options, Log log)
    : ProgressiveTranscriber(
          language,
          [language, &inventory, &cache]() -> std::shared_ptr<SegmentDecoder> {
              const ModelCatalogEntry* entry = inventory.modelForLocale(language);
              if (!entry || !inventory.isInstalled(*entry)) {
                  throw SpeechEngineError("No speech model is installed for language " + language);
              }
              return cache.acquire(inventory.modelFile(*entry));
          },
          options, std::move(log)) {}

}  // namespace kelvo::platform
