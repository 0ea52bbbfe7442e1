#pragma once

// LoadedModelCache keeps one speech model loaded between dictations so that a dictation does not
// wait for the model file to be read: preload() loads it (and runs a short warm-up decode) on a
// background thread after start-up; acquire() hands it to a dictation, waiting for a load in
// progress or loading it then; once no dictation has used it for the idle time (10 minutes by
// default, a preference) it is released, and the next acquire() or preload() loads it again.
// A model file other than the loaded one replaces it.
//
// Threads: every member may be called from any thread. The idle check runs as a Clock callback
// on the main thread. Decoders handed out stay valid while held, even after release. The clock
// must outlive the cache; the destructor waits for a background load to finish.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "platform/Clock.h"
#include "platform/model/SegmentDecoder.h"

namespace kelvo::platform {

class LoadedModelCache {
  public:
    // Loads a model file; throws SpeechEngineError when it cannot.
    using Loader = std::function<std::shared_ptr<SegmentDecoder>(const std::filesystem::path&)>;
    // Runs once on each freshly loaded decoder before anyone gets it.
    using WarmUp = std::function<void(SegmentDecoder&)>;
    using Log = std::function<void(const std::string&)>;

    LoadedModelCache(Loader loader, WarmUp warmUp, Clock& clock,
                     std::chrono::minutes idleRelease = std::chrono::minutes(10), Log log = {});
    ~LoadedModelCache();

    LoadedModelCache(const LoadedModelCache&) = delete;
    LoadedModelCache& operator=(const LoadedModelCache&) = delete;

    // Starts loading `model` in the background unless it is loaded or loading already.
    void preload(const std::filesystem::path& model);

    // The loaded decoder for `model`, loading it first if needed (blocks). The cache counts the
    // dictation as using it until the returned pointer and all its copies are gone; the idle
    // time runs from then. Throws what the loader throws.
    std::shared_ptr<SegmentDecoder> acquire(const std::filesystem::path& model);

    void setIdleRelease(std::chrono::minutes idleRelease);

    // The model file currently loaded, if any.
    std::optional<std::filesystem::path> loadedModel() const;
    bool isLoading() const;

  private:
    struct Shared;

    std::shared_ptr<Shared> shared_;
    Clock& clock_;
};

}  // namespace kelvo::platform
