#include "KelvoVoiceMac/app/SpeechBackends.h"

#include <utility>

#include "platform/linux/PocketSphinxModelLocator.h"

namespace kelvo::app {

SpeechBackends::SpeechBackends(Options options, platform::Clock& clock)
    : modelInventory_(std::move(options.catalog), options.locations.modelsFolder(),
                      std::move(options.modelSettings)),
      builtInModelEngine_(modelInventory_, clock, options.modelIdleReleaseMinutes,
                          std::move(options.log)),
      modelEngine_(builtInModelEngine_.engine(), std::move(options.isModelEngineWanted)),
      segmentRecognizers_(platform::PocketSphinxModelLocator::standard(
                              options.locations.pocketSphinxModelsFolder()),
                          clock, std::move(options.systemLocale)) {}

}  // namespace kelvo::app
