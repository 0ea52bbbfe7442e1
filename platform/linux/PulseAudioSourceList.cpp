#include "platform/linux/PulseAudioSourceList.h"

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/introspect.h>
#include <pulse/mainloop.h>

#include <algorithm>
#include <memory>
#include <string>

#include "core/support/Error.h"

namespace kelvo::platform {
namespace {

struct MainLoopDeleter {
    void operator()(pa_mainloop* loop) const { pa_mainloop_free(loop); }
};

struct ContextDeleter {
    void operator()(pa_context* context) const {
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
};

struct OperationDeleter {
    void operator()(pa_operation* operation) const { pa_operation_unref(operation); }
};

struct Listing {
    std::vector<AudioSourceInfo> sources;
    bool finished = false;
    bool failed = false;
};

void collectSource(pa_context*, const pa_source_info* info, int endOfList, void* userData) {
    auto& listing = *static_cast<Listing*>(userData);
    if (endOfList != 0) {
        listing.failed = endOfList < 0;
        listing.finished = true;
        return;
    }
    if (info == nullptr || info->monitor_of_sink != PA_INVALID_INDEX) {
        return;
    }
    listing.sources.push_back(
        AudioSourceInfo{info->name != nullptr ? info->name : "",
                        info->description != nullptr ? info->description : ""});
}

[[noreturn]] void fail(pa_context* context, const std::string& what) {
    throw Error("PulseAudio: " + what + ": " + pa_strerror(pa_context_errno(context)));
}

class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds timeout)
        : end_(std::chrono::steady_clock::now() + timeout) {}

    // Microseconds left, at least one so that a poll never blocks forever; zero once passed.
    pa_usec_t remainingMicroseconds() const {
        auto left = std::chrono::duration_cast<std::chrono::microseconds>(
            end_ - std::chrono::steady_clock::now());
        return left.count() > 0 ? static_cast<pa_usec_t>(left.count()) : 0;
    }

  private:
    std::chrono::steady_clock::time_point end_;
};

// One round of the main loop, waiting at most until the deadline. False when time is up.
bool iterate(pa_mainloop* loop, pa_context* context, const Deadline& deadline) {
    const pa_usec_t left = deadline.remainingMicroseconds();
    if (left == 0) {
        return false;
    }
    if (pa_mainloop_prepare(loop, static_cast<int>(std::min<pa_usec_t>(left, 1'000'000))) < 0 ||
        pa_mainloop_poll(loop) < 0 || pa_mainloop_dispatch(loop) < 0) {
        fail(context, "main loop failed");
    }
    return true;
}

}  // namespace

std::vector<AudioSourceInfo> PulseAudioSourceList::list(std::chrono::milliseconds timeout) {
    const Deadline deadline(timeout);
    std::unique_ptr<pa_mainloop, MainLoopDeleter> loop(pa_mainloop_new());
    if (!loop) {
        throw Error("PulseAudio: cannot create a main loop");
    }
    std::unique_ptr<pa_context, ContextDeleter> context(
        pa_context_new(pa_mainloop_get_api(loop.get()), "KelvoVoice settings"));
    if (!context) {
        throw Error("PulseAudio: cannot create a context");
    }
    if (pa_context_connect(context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        fail(context.get(), "cannot connect to the sound server");
    }
    for (;;) {
        const pa_context_state_t state = pa_context_get_state(context.get());
        if (state == PA_CONTEXT_READY) {
            break;
        }
        if (!PA_CONTEXT_IS_GOOD(state)) {
            fail(context.get(), "cannot connect to the sound server");
        }
        if (!iterate(loop.get(), context.get(), deadline)) {
            throw Error("PulseAudio: the sound server did not answer in time");
        }
    }

    Listing listing;
    std::unique_ptr<pa_operation, OperationDeleter> operation(
        pa_context_get_source_info_list(context.get(), collectSource, &listing));
    if (!operation) {
        fail(context.get(), "cannot list the sources");
    }
    while (!listing.finished) {
        if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(context.get()))) {
            fail(context.get(), "lost the sound server while listing the sources");
        }
        if (!iterate(loop.get(), context.get(), deadline)) {
            throw Error("PulseAudio: the sound server did not list its sources in time");
        }
    }
    if (listing.failed) {
        fail(context.get(), "cannot list the sources");
    }
    return std::move(listing.sources);
}

}  // namespace kelvo::platform
