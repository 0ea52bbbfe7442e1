#include "platform/model/LoadedModelCache.h"

#include <exception>

#include "platform/SpeechEngineError.h"

namespace kelvo::platform {

// State shared with the background loader and the clock callbacks, which may outlive a call.
struct LoadedModelCache::Shared {
    Loader loader;
    WarmUp warmUp;
    Log log;
    Clock* clock = nullptr;

    std::mutex mutex;
    std::condition_variable changed;
    std::chrono::minutes idleRelease;
    std::optional<std::filesystem::path> model;  // loaded or loading
    std::shared_ptr<SegmentDecoder> decoder;     // when loaded
    bool loading = false;
    std::optional<std::string> loadFailure;
    std::thread loaderThread;
    int users = 0;
    Clock::TimePoint lastUse{};
    std::optional<std::uint64_t> idleCheck;

    // Loads `path` with the lock released; called with the lock held and `loading` set.
    void load(const std::shared_ptr<Shared>& self, std::unique_lock<std::mutex>& lock,
              const std::filesystem::path& path) {
        lock.unlock();
        std::shared_ptr<SegmentDecoder> loaded;
        std::optional<std::string> failure;
        const auto started = std::chrono::steady_clock::now();
        try {
            loaded = loader(path);
            if (warmUp) {
                warmUp(*loaded);
            }
        } catch (const std::exception& error) {
            failure = error.what();
        }
        const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - started);
        if (log) {
            log(failure ? "model " + path.filename().string() + " failed to load: " + *failure
                        : "model " + path.filename().string() + " loaded and warmed up in " +
                              std::to_string(took.count()) + " ms");
        }
        lock.lock();
        loading = false;
        if (model == path) {
            decoder = failure ? nullptr : loaded;
            loadFailure = failure;
            if (failure) {
                model.reset();
            } else if (users == 0) {
                // Loaded ahead of use: the idle time runs from now.
                lastUse = clock->now();
                scheduleIdleCheck(self);
            }
        }
        changed.notify_all();
    }

    void scheduleIdleCheck(const std::shared_ptr<Shared>& self) {
        if (idleCheck) {
            clock->cancel(*idleCheck);
        }
        const std::weak_ptr<Shared> weak = self;
        idleCheck = clock->schedule(idleRelease, [weak] {
            if (const std::shared_ptr<Shared> shared = weak.lock()) {
                shared->releaseIfIdle();
            }
        });
    }

    void releaseIfIdle() {
        std::shared_ptr<SegmentDecoder> released;
        {
            std::lock_guard lock(mutex);
            idleCheck.reset();
            if (users > 0 || !decoder || clock->now() - lastUse < idleRelease) {
                return;
            }
            released = std::move(decoder);
            if (log) {
                log("model " + model->filename().string() + " released after " +
                    std::to_string(idleRelease.count()) + " idle minutes");
            }
            model.reset();
        }
        // The model's memory is freed here, outside the lock.
    }
};

LoadedModelCache::LoadedModelCache(Loader loader, WarmUp warmUp, Clock& clock,
                                   std::chrono::minutes idleRelease, Log log)
    : shared_(std::make_shared<Shared>()), clock_(clock) {
    shared_->loader = std::move(loader);
    shared_->warmUp = std::move(warmUp);
    shared_->log = std::move(log);
    shared_->clock = &clock;
    shared_->idleRelease = idleRelease;
}

LoadedModelCache::~LoadedModelCache() {
    std::unique_lock lock(shared_->mutex);
    if (shared_->idleCheck) {
        clock_.cancel(*shared_->idleCheck);
    }
    std::thread loader = std::move(shared_->loaderThread);
    lock.unlock();
    if (loader.joinable()) {
        loader.join();
    }
}

void LoadedModelCache::preload(const std::filesystem::path& model) {
    std::unique_lock lock(shared_->mutex);
    if (shared_->model == model || shared_->loading) {
        return;
    }
    if (shared_->loaderThread.joinable()) {
        // The previous load has finished (loading is false); collect its thread.
        std::thread finished = std::move(shared_->loaderThread);
        lock.unlock();
        finished.join();
        lock.lock();
        if (shared_->model == model || shared_->loading) {
            return;
        }
    }
    shared_->model = model;
    shared_->decoder.reset();
    shared_->loading = true;
    shared_->loaderThread = std::thread([shared = shared_, model] {
        std::unique_lock loaderLock(shared->mutex);
        shared->load(shared, loaderLock, model);
    });
}

std::shared_ptr<SegmentDecoder> LoadedModelCache::acquire(const std::filesystem::path& model) {
    const std::shared_ptr<Shared> shared = shared_;
    std::unique_lock lock(shared->mutex);
    shared->changed.wait(lock, [&] { return !shared->loading; });
    if (shared->model != model || !shared->decoder) {
        shared->model = model;
        shared->decoder.reset();
        shared->loading = true;
        shared->load(shared, lock, model);
        if (!shared->decoder) {
            throw SpeechEngineError(shared->loadFailure.value_or("unknown error"));
        }
    }
    ++shared->users;
    std::shared_ptr<SegmentDecoder> decoder = shared->decoder;
    // The lease: when the dictation lets go of the decoder, the idle time starts.
    const std::weak_ptr<Shared> weak = shared;
    return std::shared_ptr<SegmentDecoder>(decoder.get(), [weak, decoder](SegmentDecoder*) mutable {
        decoder.reset();
        if (const std::shared_ptr<Shared> owner = weak.lock()) {
            std::lock_guard ownerLock(owner->mutex);
            --owner->users;
            owner->lastUse = owner->clock->now();
            if (owner->users == 0) {
                owner->scheduleIdleCheck(owner);
            }
        }
    });
}

void LoadedModelCache::setIdleRelease(std::chrono::minutes idleRelease) {
    std::lock_guard lock(shared_->mutex);
    shared_->idleRelease = idleRelease;
    if (shared_->users == 0 && shared_->decoder) {
        shared_->scheduleIdleCheck(shared_);
    }
}

std::optional<std::filesystem::path> LoadedModelCache::loadedModel() const {
    std::lock_guard lock(shared_->mutex);
    if (!shared_->decoder) {
        return std::nullopt;
    }
    return shared_->model;
}

bool LoadedModelCache::isLoading() const {
    std::lock_guard lock(shared_->mutex);
    return shared_->loading;
}

}  // namespace kelvo::platform
