#include "platform/model/ProgressiveTranscriber.h"

#include <algorithm>

#include "core/support/Unicode.h"
#include "platform/SpeechEngineError.h"
#include "platform/model/InitialPrompt.h"
#include "platform/model/TranscriptGuard.h"

namespace kelvo::platform {
namespace {

constexpr std::size_t kSampleRate = 16000;
constexpr std::size_t kFrame = SpeechActivityDetector::kFrameSamples;

std::size_t samplesIn(std::chrono::milliseconds duration) {
    return static_cast<std::size_t>(duration.count()) * kSampleRate / 1000;
}

std::size_t framesIn(std::chrono::milliseconds duration) {
    return (samplesIn(duration) + kFrame - 1) / kFrame;
}

}  // namespace

ProgressiveTranscriber::ProgressiveTranscriber(std::string language, DecoderSource acquireDecoder,
                                               Options options, Log log)
    : language_(std::move(language)),
      acquireDecoder_(std::move(acquireDecoder)),
      options_(options),
      log_(std::move(log)) {}

ProgressiveTranscriber::~ProgressiveTranscriber() {
    cancel();
    if (worker_.joinable()) {
        worker_.join();
    }
}

void ProgressiveTranscriber::setContextualStrings(const std::vector<std::string>& strings) {
    // Turned into a prompt in prepare(), once the model's tokenizer is at hand.
    contextualStrings_ = strings;
}

void ProgressiveTranscriber::prepare() {
    decoder_ = acquireDecoder_();
    if (!decoder_) {
        throw SpeechEngineError("No speech model is loaded for language " + language_);
    }
    const InitialPrompt prompt = InitialPrompt::compose(contextualStrings_, *decoder_);
    prompt_ = prompt.text;
    if (prompt.keptCount < contextualStrings_.size() && log_) {
        log_("initial prompt keeps the newest " + std::to_string(prompt.keptCount) + " of " +
             std::to_string(contextualStrings_.size()) + " contextual strings (limit " +
             std::to_string(decoder_->promptTokenLimit()) + " tokens)");
    }
    {
        std::lock_guard lock(mutex_);
        statistics_.promptTermCount = prompt.keptCount;
        workerDone_ = false;
    }
    worker_ = std::thread([this] { runWorker(); });
}

void ProgressiveTranscriber::analyze(std::span<const std::int16_t> samples16kMono) {
    std::vector<float> converted(samples16kMono.size());
    std::transform(samples16kMono.begin(), samples16kMono.end(), converted.begin(),
                   [](std::int16_t sample) { return static_cast<float>(sample) / 32768.0f; });
    {
        std::unique_lock lock(mutex_);
        // Held back while the window is longer than a segment can be: the worker cuts it by then,
        // so audio that comes faster than it is decoded (a file) waits instead of filling memory.
        const std::size_t windowLimit =
            samplesIn(options_.maximumSegment + std::chrono::seconds(2));
        changed_.wait(lock,
                      [&] { return window_.size() < windowLimit || cancelled_ || inputFinished_; });
        if (cancelled_ || inputFinished_) {
            return;
        }
        for (const bool speech : detector_.classify(converted)) {
            frames_.push_back(speech);
        }
        window_.insert(window_.end(), converted.begin(), converted.end());
        totalSamples_ += converted.size();
        if (decodingPartial_ && options_.abortPartialAtPause && hasSpeech() &&
            trailingSilenceFrames() >= framesIn(options_.pauseForFinal)) {
            abortDecode_ = true;
        }
    }
    changed_.notify_all();
}

void ProgressiveTranscriber::finishInput() {
    {
        std::lock_guard lock(mutex_);
        if (cancelled_) {
            return;
        }
        inputFinished_ = true;
        // A hypothesis nobody will see any more only delays the last final.
        if (decodingPartial_) {
            abortDecode_ = true;
        }
    }
    changed_.notify_all();
}

std::optional<ModelTranscriber::Result> ProgressiveTranscriber::nextResult() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !results_.empty() || ended_ || cancelled_; });
    if (cancelled_) {
        return std::nullopt;
    }
    if (!results_.empty()) {
        Result result = std::move(results_.front());
        results_.pop_front();
        return result;
    }
    if (error_) {
        const std::string message = *error_;
        error_.reset();
        throw SpeechEngineError(message);
    }
    return std::nullopt;
}

void ProgressiveTranscriber::finalizeThroughEndOfInput() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return (inputFinished_ && workerDone_) || cancelled_; });
    ended_ = true;
    lock.unlock();
    changed_.notify_all();
}

void ProgressiveTranscriber::cancel() {
    {
        std::lock_guard lock(mutex_);
        cancelled_ = true;
        abortDecode_ = true;
    }
    changed_.notify_all();
}

ProgressiveTranscriber::Statistics ProgressiveTranscriber::statistics() const {
    std::lock_guard lock(mutex_);
    return statistics_;
}

bool ProgressiveTranscriber::hasSpeech() const {
    return std::find(frames_.begin(), frames_.end(), true) != frames_.end();
}

std::size_t ProgressiveTranscriber::trailingSilenceFrames() const {
    const auto lastSpeech = std::find(frames_.rbegin(), frames_.rend(), true);
    return static_cast<std::size_t>(lastSpeech - frames_.rbegin());
}

void ProgressiveTranscriber::push(Result result) {
    results_.push_back(std::move(result));
    changed_.notify_all();
}

ProgressiveTranscriber::Action ProgressiveTranscriber::nextAction() {
    const bool speech = hasSpeech();
    if (!speech) {
        // Nobody has spoken in this segment: keep only a short pre-roll of the silence.
        const std::size_t keep = framesIn(options_.preRoll);
        if (frames_.size() > keep) {
            const std::size_t drop = frames_.size() - keep;
            frames_.erase(frames_.begin(), frames_.begin() + static_cast<std::ptrdiff_t>(drop));
            window_.erase(window_.begin(),
                          window_.begin() + static_cast<std::ptrdiff_t>(drop * kFrame));
            changed_.notify_all();  // room for a held-back analyze()
        }
        if (inputFinished_) {
            return {Action::Kind::end, 0};
        }
        return {};
    }
    const std::size_t maximumFrames = samplesIn(options_.maximumSegment) / kFrame;
    const std::size_t silence = trailingSilenceFrames();
    if (silence >= framesIn(options_.pauseForFinal)) {
        const std::size_t speechEnd = frames_.size() - silence;
        const std::size_t cut =
            std::min(frames_.size(), speechEnd + framesIn(options_.tailPadding));
        return {Action::Kind::final_, cut * kFrame};
    }
    if (frames_.size() >= maximumFrames) {
        return {Action::Kind::final_, maximumFrames * kFrame};
    }
    if (inputFinished_) {
        return {Action::Kind::final_, window_.size()};
    }
    if (totalSamples_ - lastPartialAt_ >= samplesIn(options_.partialInterval)) {
        return {Action::Kind::partial, 0};
    }
    return {};
}

void ProgressiveTranscriber::runWorker() {
    const std::size_t minimumSpeechFrames = framesIn(options_.minimumSpeech);
    std::unique_lock lock(mutex_);
    for (;;) {
        Action action;
        changed_.wait(lock, [&] {
            if (cancelled_) {
                return true;
            }
            action = nextAction();
            return action.kind != Action::Kind::none;
        });
        if (cancelled_ || action.kind == Action::Kind::end) {
            break;
        }

        std::vector<float> segment;
        std::size_t speechFrames = 0;
        const bool isFinal = action.kind == Action::Kind::final_;
        if (isFinal) {
            const std::size_t cutFrames = std::min(frames_.size(), action.cutSamples / kFrame);
            speechFrames = static_cast<std::size_t>(std::count(
                frames_.begin(), frames_.begin() + static_cast<std::ptrdiff_t>(cutFrames), true));
            // At the end of input the unclassified tail goes with the last segment.
            const std::size_t cut = std::min(window_.size(), action.cutSamples);
            segment.assign(window_.begin(), window_.begin() + static_cast<std::ptrdiff_t>(cut));
            window_.erase(window_.begin(), window_.begin() + static_cast<std::ptrdiff_t>(cut));
            frames_.erase(frames_.begin(), frames_.begin() + static_cast<std::ptrdiff_t>(std::min(
                                                                 frames_.size(), cut / kFrame)));
            changed_.notify_all();
            ++statistics_.finalDecodes;
        } else {
            segment = window_;
            speechFrames =
                static_cast<std::size_t>(std::count(frames_.begin(), frames_.end(), true));
            ++statistics_.partialDecodes;
        }
        lastPartialAt_ = totalSamples_;
        decodingPartial_ = !isFinal;
        abortDecode_ = cancelled_ || (!isFinal && inputFinished_);
        const bool spoke = speechFrames >= minimumSpeechFrames;

        lock.unlock();
        std::string text;
        std::optional<std::string> failure;
        try {
            text = decoder_->decode(
                segment, language_, prompt_,
                isFinal ? SegmentDecoder::Purpose::final_ : SegmentDecoder::Purpose::partial,
                abortDecode_);
        } catch (const std::exception& error) {
            failure = error.what();
        }
        lock.lock();
        decodingPartial_ = false;
        if (cancelled_) {
            break;
        }
        if (failure) {
            error_ = failure;
            break;
        }
        if (!isFinal && (inputFinished_ || abortDecode_)) {
            continue;  // aborted or stale: the final decode follows
        }

        text = std::string(unicode::trimWhitespaceAndNewlines(text));
        if (TranscriptGuard::shouldDrop(text, prompt_, spoke)) {
            if (!text.empty()) {
                ++statistics_.droppedByGuard;
            }
            text.clear();
        }
        if (isFinal) {
            // An empty final still replaces a partial the user saw for this segment.
            if (!text.empty() || partialShown_) {
                push(Result{text, true});
            }
            partialShown_ = false;
            lastPartial_.clear();
        } else if (!text.empty() && text != lastPartial_) {
            lastPartial_ = text;
            partialShown_ = true;
            push(Result{text, false});
        }
    }
    workerDone_ = true;
    ended_ = ended_ || error_.has_value();
    lock.unlock();
    changed_.notify_all();
}

}  // namespace kelvo::platform
