#include "platform/whisper/WhisperModelEngine.h"

#include <algorithm>
#include <thread>
#include <vector>

#include "platform/whisper/WhisperDecoder.h"
#include "platform/whisper/WhisperTranscriber.h"

namespace kelvo::platform {
namespace {

// Half a second of near silence: enough for whisper to allocate its buffers and touch every
// weight once, so that the first real decode runs at full speed.
void warmUp(SegmentDecoder& decoder) {
    std::vector<float> quiet(8000, 0.0f);
    const std::atomic<bool> never = false;
    decoder.decode(quiet, "en", "", SegmentDecoder::Purpose::final_, never);
}

}  // namespace

WhisperModelEngine::WhisperModelEngine(ModelInventory& inventory, Clock& clock, Log log,
                                       ProgressiveTranscriber::Options options)
    : ModelFileEngine(inventory),
      log_(log),
      options_(options),
      cache_(
          [](const std::filesystem::path& model) -> std::shared_ptr<SegmentDecoder> {
              return WhisperDecoder::load(model, decodingThreads());
          },
          &warmUp, clock, std::chrono::minutes(10), log) {}

int WhisperModelEngine::decodingThreads() {
    return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 4u));
}

std::unique_ptr<ModelTranscriber> WhisperModelEngine::makeTranscriber(const std::string& locale) {
    return std::make_unique<WhisperTranscriber>(ModelCatalog::languageOfLocale(locale), inventory(),
                                                cache_, options_, log_);
}

void WhisperModelEngine::loadInBackground(const std::string& locale) {
    const ModelCatalogEntry* entry = inventory().modelForLocale(locale);
    if (entry && inventory().isInstalled(*entry)) {
        cache_.preload(inventory().modelFile(*entry));
    }
}

void WhisperModelEngine::setIdleReleaseMinutes(int minutes) {
    cache_.setIdleRelease(std::chrono::minutes(std::max(1, minutes)));
}

}  // namespace kelvo::platform
