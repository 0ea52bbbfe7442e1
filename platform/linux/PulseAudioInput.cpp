#include "platform/linux/PulseAudioInput.h"

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/introspect.h>
#include <pulse/mainloop.h>
#include <pulse/simple.h>

#include <mutex>
#include <vector>

#include "platform/AudioInputError.h"

namespace kelvo::platform {
namespace {

// A short-lived connection to the server on a private, non-threaded main loop, iterated by the
// calling thread until each question is answered. Used for the permission probe and the source
// query; the capture itself goes through libpulse-simple.
class ServerConnection {
  public:
    explicit ServerConnection(const std::string& applicationName) {
        loop_ = pa_mainloop_new();
        context_ = pa_context_new(pa_mainloop_get_api(loop_), applicationName.c_str());
        if (context_ == nullptr) {
            error_ = PA_ERR_INTERNAL;
            return;
        }
        if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
            error_ = pa_context_errno(context_);
            return;
        }
        for (;;) {
            const pa_context_state_t state = pa_context_get_state(context_);
            if (state == PA_CONTEXT_READY) {
                ready_ = true;
                return;
            }
            if (!PA_CONTEXT_IS_GOOD(state) || pa_mainloop_iterate(loop_, 1, nullptr) < 0) {
                error_ = pa_context_errno(context_);
                return;
            }
        }
    }

    ~ServerConnection() {
        if (context_ != nullptr) {
            pa_context_disconnect(context_);
            pa_context_unref(context_);
        }
        pa_mainloop_free(loop_);
    }

    ServerConnection(const ServerConnection&) = delete;
    ServerConnection& operator=(const ServerConnection&) = delete;

    bool isReady() const { return ready_; }
    int error() const { return error_; }

    // The default source's name, or empty when the server has none.
    std::string defaultSourceName() {
        std::string name;
        bool done = false;
        struct Answer {
            std::string* name;
            bool* done;
        } answer{&name, &done};
        wait(pa_context_get_server_info(
                 context_,
                 [](pa_context*, const pa_server_info* info, void* data) {
                     auto* answer = static_cast<Answer*>(data);
                     if (info != nullptr && info->default_source_name != nullptr) {
                         *answer->name = info->default_source_name;
                     }
                     *answer->done = true;
                 },
                 &answer),
             done);
        return name;
    }

    // The named source's sample spec, or std::nullopt when there is no such source.
    std::optional<pa_sample_spec> sourceSpec(const std::string& name) {
        std::optional<pa_sample_spec> spec;
        bool done = false;
        struct Answer {
            std::optional<pa_sample_spec>* spec;
            bool* done;
        } answer{&spec, &done};
        wait(pa_context_get_source_info_by_name(
                 context_, name.c_str(),
                 [](pa_context*, const pa_source_info* info, int eol, void* data) {
                     auto* answer = static_cast<Answer*>(data);
                     if (eol == 0 && info != nullptr) {
                         *answer->spec = info->sample_spec;
                         return;
                     }
                     *answer->done = true;
                 },
                 &answer),
             done);
        return spec;
    }

  private:
    void wait(pa_operation* operation, const bool& done) {
        if (operation == nullptr) {
            return;
        }
        while (!done && pa_operation_get_state(operation) == PA_OPERATION_RUNNING) {
            if (pa_mainloop_iterate(loop_, 1, nullptr) < 0) {
                break;
            }
        }
        pa_operation_unref(operation);
    }

    pa_mainloop* loop_ = nullptr;
    pa_context* context_ = nullptr;
    bool ready_ = false;
    int error_ = 0;
};

bool isInteger16(pa_sample_format_t format) {
    return format == PA_SAMPLE_S16LE || format == PA_SAMPLE_S16BE;
}

}  // namespace

PulseAudioInput::PulseAudioInput(std::string sourceName, std::string applicationName)
    : sourceName_(std::move(sourceName)), applicationName_(std::move(applicationName)) {}

PulseAudioInput::~PulseAudioInput() {
    close();
    if (captureThread_.joinable()) {
        captureThread_.join();
    }
}

AudioInput::Authorization PulseAudioInput::authorization() {
    const ServerConnection connection(applicationName_);
    if (connection.isReady()) {
        return Authorization::authorized;
    }
    const int error = connection.error();
    if (error == PA_ERR_ACCESS || error == PA_ERR_CONNECTIONREFUSED) {
        return Authorization::denied;
    }
    // Anything else (a server that went away mid-handshake, say) is not a refusal: open() will
    // find no source and say so.
    return Authorization::authorized;
}

void PulseAudioInput::requestAuthorization(std::function<void(bool granted)> completion) {
    // There is nothing to ask: the answer is whatever the server says now.
    completion(authorization() == Authorization::authorized);
}

std::optional<AudioInput::Format> PulseAudioInput::open() {
    close();
    ServerConnection connection(applicationName_);
    if (!connection.isReady()) {
        return std::nullopt;
    }
    const std::string name = sourceName_.empty() ? connection.defaultSourceName() : sourceName_;
    if (name.empty()) {
        return std::nullopt;
    }
    const std::optional<pa_sample_spec> spec = connection.sourceSpec(name);
    if (!spec) {
        return std::nullopt;
    }
    openedSource_ = name;
    Format format;
    format.sampleRateHz = spec->rate;
    format.channelCount = spec->channels;
    format.sampleFormat = isInteger16(spec->format) ? SampleFormat::int16 : SampleFormat::float32;
    format_ = format;
    return format;
}

// What close() and the capture thread share: close() may return while the thread is still in its
// read, so the thread must not need the object any more.
struct PulseAudioInput::Capture {
    std::mutex delivery;
    bool stopped = false;  // guarded by delivery
};

void PulseAudioInput::start(std::uint32_t framesPerRead, FramesHandler handler) {
    if (!format_ || capture_) {
        throw AudioInputError("The microphone is not open");
    }
    pa_sample_spec spec{};
    spec.format =
        format_->sampleFormat == SampleFormat::int16 ? PA_SAMPLE_S16NE : PA_SAMPLE_FLOAT32NE;
    spec.rate = static_cast<std::uint32_t>(format_->sampleRateHz);
    spec.channels = static_cast<std::uint8_t>(format_->channelCount);
    if (!pa_sample_spec_valid(&spec) || framesPerRead == 0) {
        throw AudioInputError(pa_strerror(PA_ERR_INVALID));
    }
    // One fragment per read: the server sends a read's worth at a time, so each read returns as
    // soon as it is complete instead of waiting on smaller pieces.
    pa_buffer_attr attributes{};
    attributes.maxlength = static_cast<std::uint32_t>(-1);
    attributes.tlength = static_cast<std::uint32_t>(-1);
    attributes.prebuf = static_cast<std::uint32_t>(-1);
    attributes.minreq = static_cast<std::uint32_t>(-1);
    attributes.fragsize = framesPerRead * static_cast<std::uint32_t>(pa_frame_size(&spec));
    int error = 0;
    pa_simple* stream =
        pa_simple_new(nullptr, applicationName_.c_str(), PA_STREAM_RECORD, openedSource_.c_str(),
                      "Dictation", &spec, nullptr, &attributes, &error);
    if (stream == nullptr) {
        throw AudioInputError(pa_strerror(error));
    }
    // The previous capture's thread may still be finishing its last read.
    if (captureThread_.joinable()) {
        captureThread_.join();
    }
    capture_ = std::make_shared<Capture>();
    captureThread_ = std::thread([capture = capture_, stream, format = *format_, framesPerRead,
                                  handler = std::move(handler)] {
        captureLoop(*capture, stream, format, framesPerRead, handler);
        pa_simple_free(stream);
    });
}

void PulseAudioInput::captureLoop(Capture& capture, pa_simple* stream, const Format& format,
                                  std::uint32_t framesPerRead, const FramesHandler& handler) {
    const std::size_t samplesPerRead = std::size_t{framesPerRead} * format.channelCount;
    std::vector<float> floats;
    std::vector<std::int16_t> integers;
    if (format.sampleFormat == SampleFormat::int16) {
        integers.resize(samplesPerRead);
    } else {
        floats.resize(samplesPerRead);
    }
    for (;;) {
        void* data = integers.empty() ? static_cast<void*>(floats.data()) : integers.data();
        const std::size_t bytes = integers.empty() ? floats.size() * sizeof(float)
                                                   : integers.size() * sizeof(std::int16_t);
        int error = 0;
        if (pa_simple_read(stream, data, bytes, &error) < 0) {
            // The server went away or the source vanished: delivery ends.
            return;
        }
        const std::lock_guard lock(capture.delivery);
        if (capture.stopped) {
            return;
        }
        Frames frames;
        frames.format = format;
        frames.frameCount = framesPerRead;
        frames.float32Samples = floats;
        frames.int16Samples = integers;
        handler(frames);
    }
}

void PulseAudioInput::close() {
    if (capture_) {
        // Waits for a delivery in progress, not for the read: the last read's audio is not wanted
        // once the owner has stopped, and waiting for it would add up to a read's worth of audio
        // (85 ms for 4096 frames at 48 kHz) to the end of every dictation. The thread frees its
        // stream when the read returns; the next start() or the destructor waits for it.
        const std::lock_guard lock(capture_->delivery);
        capture_->stopped = true;
    }
    capture_.reset();
    format_.reset();
    openedSource_.clear();
}

}  // namespace kelvo::platform
