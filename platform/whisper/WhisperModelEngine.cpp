#include "platform/whisper/WhisperModelEngine.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/whisper/WhisperTranscriber.h"

namespace kelvo::platform {
WhisperModelEngine::WhisperModelEngine(ModelInventory& inventory, Clock& clock, Log log,
                                       ProgressiveTranscriber::Options options)
    : ModelFileEngine(inventory),
      log_(log),
      options_(options),
      cache_(
          [](const std::filesystem::path& model) -> std::shared_ptr<SegmentDecoder> {
              return WhisperDecoder::load(model, decoderSettings());
          },
          &WhisperModelEngine::warmUp, clock, std::chrono::minutes(10), log) {}

void WhisperModelEngine::warmUp(SegmentDecoder& decoder) {
    // Half a second of silence decoded as a partial: one encoder pass cut to the audio and one
    // greedy decoder pass. That is enough for whisper to touch every weight and settle its
    // buffers, so that the first real decode runs at full speed. A final's full 30-second window
    // with its temperature fallback would cost several times as much, and a dictation whose
    // start reloaded a released model waits for it.
    const std::vector<float> quiet(8000, 0.0f);
    const std::atomic<bool> never = false;
    decoder.decode(quiet, "en", "", SegmentDecoder::Purpose::partial, never);
}

int WhisperModelEngine::decodingThreads() {
    // One thread per physical core but one, up to four: ggml's threads meet at a barrier after
    // every operation, so a thread the scheduler preempts for the desktop (capture, the
    // application in front) stalls all the others, and a hyper-thread sibling only waits. On the
    // busy 2-core development machine one thread gave the text 3 to 10 times sooner than two
    // (bench/WhisperBench, ReleaseToFinalLever). Without a topology in sysfs every logical
    // processor counts.
    std::set<std::pair<std::string, std::string>> cores;
    const std::filesystem::path cpus = "/sys/devices/system/cpu";
    for (unsigned cpu = 0; cpu < std::thread::hardware_concurrency(); ++cpu) {
        const auto topology = cpus / ("cpu" + std::to_string(cpu)) / "topology";
        std::ifstream package(topology / "physical_package_id");
        std::ifstream core(topology / "core_id");
        std::string packageId, coreId;
        if (package >> packageId && core >> coreId) {
            cores.emplace(packageId, coreId);
        }
    }
    const auto count =
        cores.empty() ? std::thread::hardware_concurrency() : static_cast<unsigned>(cores.size());
    return static_cast<int>(std::min(std::max(count, 2u) - 1, 4u));
}

WhisperDecoder::Settings WhisperModelEngine::decoderSettings() {
    return WhisperDecoder::Settings{.threads = decodingThreads()};
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
