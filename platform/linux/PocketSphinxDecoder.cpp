#include "platform/linux/PocketSphinxDecoder.h"

#include <pocketsphinx.h>
#include <sphinxbase/cmn.h>
#include <sphinxbase/feat.h>

#include <cstdlib>
#include <type_traits>
#include <utility>

namespace kelvo::platform {
namespace {

using Result = SegmentRecognitionTask::Result;
using Error = SegmentRecognitionTask::Error;

std::string asciiLower(const std::string& word) {
    std::string text = word;
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return text;
}

std::vector<std::string> wordsOf(const std::string& text) {
    std::vector<std::string> words;
    std::string word;
    for (const char c : text + " ") {
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            if (!word.empty()) {
                words.push_back(std::move(word));
                word.clear();
            }
        } else {
            word += c;
        }
    }
    return words;
}

// The pronunciation the loaded dictionary has for word, or empty.
std::string pronunciation(ps_decoder_t* decoder, const std::string& word) {
    char* phones = ps_lookup_word(decoder, word.c_str());
    if (phones == nullptr) {
        return {};
    }
    std::string text = phones;
    std::free(phones);
    return text;
}

}  // namespace

PocketSphinxDecoder::PocketSphinxDecoder(PocketSphinxModel model, Clock& clock,
                                         Clock::Duration idleRelease)
    : model_(std::move(model)),
      clock_(clock),
      idleRelease_(idleRelease),
      spaceSeparated_(isSpaceSeparated(model_.locale)) {}

PocketSphinxDecoder::~PocketSphinxDecoder() {
    unload();
}

bool PocketSphinxDecoder::isSpaceSeparated(const std::string& locale) {
    // Languages written without spaces between words.
    const std::string language = asciiLower(locale.substr(0, locale.find_first_of("-_")));
    for (const char* unspaced : {"ja", "zh", "th", "lo", "km", "my", "bo", "yue"}) {
        if (language == unspaced) {
            return false;
        }
    }
    return true;
}

void PocketSphinxDecoder::shutDown() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    room_.notify_all();
}

void PocketSphinxDecoder::attach(const std::shared_ptr<PocketSphinxRecognitionTask>& task) {
    std::shared_ptr<PocketSphinxRecognitionTask> replaced;
    std::optional<std::uint64_t> timer;
    {
        const std::lock_guard lock(mutex_);
        if (attached_ && attached_ != task) {
            replaced = std::move(attached_);
        }
        task->place.stream = stream_;
        task->place.serial = ++lastSerial_;
        attached_ = task;
        timer = std::exchange(idleTimer_, std::nullopt);
    }
    wake_.notify_all();
    if (timer) {
        clock_.cancel(*timer);
    }
    if (replaced) {
        replaced->deliver(std::nullopt,
                          Error{Error::cancelledCode, "The recognition request was cancelled"},
                          true);
    }
}

bool PocketSphinxDecoder::accepts(const PocketSphinxRecognitionTask& task) const {
    return !task.isCancelled() && task.place.stream == stream_ && !streamEnded_;
}

void PocketSphinxDecoder::append(const PocketSphinxRecognitionTask& task,
                                 std::span<const std::int16_t> samples) {
    if (samples.empty()) {
        return;
    }
    {
        std::unique_lock lock(mutex_);
        // Waits for room while the stream is decoded (or ended, or dropped, or shut down).
        room_.wait(lock, [&] {
            return queuedSamples_ < maximumQueuedSamples || !accepts(task) || stopping_;
        });
        if (!accepts(task) || stopping_) {
            return;
        }
        queue_.push_back(
            Item{stream_, std::vector<std::int16_t>(samples.begin(), samples.end()), false, {}});
        queuedSamples_ += samples.size();
    }
    wake_.notify_all();
}

void PocketSphinxDecoder::endAudio(const PocketSphinxRecognitionTask& task,
                                   std::function<void()> decoded) {
    bool accepted = false;
    {
        const std::lock_guard lock(mutex_);
        accepted = accepts(task);
        if (accepted) {
            queue_.push_back(Item{stream_, {}, true, {}});
            streamEnded_ = true;
            endDecoded_ = std::move(decoded);
        }
    }
    wake_.notify_all();
    room_.notify_all();
    // A cancelled task or an ended stream will see no more decoding from this call.
    if (!accepted && decoded) {
        decoded();
    }
}

void PocketSphinxDecoder::catchUp(const PocketSphinxRecognitionTask& task,
                                  std::function<void()> caughtUp) {
    if (!caughtUp) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        if (accepts(task)) {
            queue_.push_back(Item{stream_, {}, false, std::move(caughtUp)});
            caughtUp = nullptr;
        }
    }
    wake_.notify_all();
    if (caughtUp) {
        caughtUp();  // nothing of this task's audio is left to decode
    }
}

std::vector<std::function<void()>> PocketSphinxDecoder::dropStreamLocked() {
    std::vector<std::function<void()>> callbacks;
    for (Item& item : queue_) {
        if (item.caughtUp) {
            callbacks.push_back(std::move(item.caughtUp));
        }
    }
    if (endDecoded_) {
        callbacks.push_back(std::exchange(endDecoded_, nullptr));
    }
    ++stream_;
    queue_.clear();
    queuedSamples_ = 0;
    streamEnded_ = false;
    room_.notify_all();
    return callbacks;
}

void PocketSphinxDecoder::cancel(const PocketSphinxRecognitionTask& task) {
    bool idle = false;
    std::vector<std::function<void()>> dropped;
    {
        const std::lock_guard lock(mutex_);
        // Only the newest task speaks for the dictation; an older, finished one going away must
        // not end the stream its successor is decoding.
        if (task.place.serial == lastSerial_ && task.place.stream == stream_) {
            dropped = dropStreamLocked();
        }
        if (attached_.get() == &task) {
            attached_.reset();
        }
        idle = !attached_ && !stopping_;
    }
    wake_.notify_all();
    room_.notify_all();  // an append() for the cancelled task gives up
    for (const std::function<void()>& callback : dropped) {
        callback();
    }
    if (idle) {
        scheduleIdleRelease();
    }
}

void PocketSphinxDecoder::scheduleIdleRelease() {
    const std::weak_ptr<PocketSphinxDecoder> weakSelf = weak_from_this();
    const std::uint64_t timer = clock_.schedule(idleRelease_, [weakSelf] {
        if (auto self = weakSelf.lock()) {
            self->requestRelease();
        }
    });
    std::optional<std::uint64_t> previous;
    {
        const std::lock_guard lock(mutex_);
        previous = std::exchange(idleTimer_, timer);
    }
    if (previous) {
        clock_.cancel(*previous);
    }
}

void PocketSphinxDecoder::requestRelease() {
    {
        const std::lock_guard lock(mutex_);
        if (attached_ || !queue_.empty()) {
            return;
        }
        releaseRequested_ = true;
    }
    wake_.notify_all();
}

void PocketSphinxDecoder::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] {
            return stopping_ || releaseRequested_ ||
                   (attached_ && (decoder_ == nullptr || !queue_.empty() ||
                                  attached_->place.serial != preparedSerial_));
        });
        if (stopping_) {
            return;
        }
        if (releaseRequested_) {
            releaseRequested_ = false;
            if (!attached_ && queue_.empty()) {
                lock.unlock();
                abandonUtterance();
                unload();
                lock.lock();
            }
            continue;
        }
        const std::shared_ptr<PocketSphinxRecognitionTask> task = attached_;
        if (decoder_ == nullptr) {
            lock.unlock();
            std::string failure;
            const bool loaded = load(failure);
            lock.lock();
            if (!loaded) {
                // The whole dictation is lost without a model: drop its audio with the task.
                const std::vector<std::function<void()>> dropped = dropStreamLocked();
                lock.unlock();
                endTask(task, std::nullopt, Error{modelUnavailableCode, failure});
                // Nothing more of this audio will be decoded: whoever waits for it can stop.
                for (const std::function<void()>& callback : dropped) {
                    callback();
                }
                lock.lock();
            }
            continue;
        }
        if (task->place.serial != preparedSerial_) {
            preparedSerial_ = task->place.serial;
            lock.unlock();
            applyHints(task->options());
            lock.lock();
            continue;
        }
        const Item item = std::move(queue_.front());
        queue_.pop_front();
        queuedSamples_ -= item.samples.size();
        room_.notify_all();
        lock.unlock();
        process(item, task);
        lock.lock();
    }
}

bool PocketSphinxDecoder::load(std::string& failure) {
    const std::string hmm = model_.acousticModel.string();
    const std::string dict = model_.dictionary.string();
    const std::string lm = model_.languageModel.string();
    // An argument vector rather than cmd_ln_init's varargs, which stop at the first null.
    const char* arguments[] = {"-hmm", hmm.c_str(), "-dict",  dict.c_str(),
                               "-lm",  lm.c_str(),  "-logfn", "/dev/null"};
    config_ = cmd_ln_parse_r(nullptr, ps_args(), static_cast<int>(std::size(arguments)),
                             const_cast<char**>(arguments), TRUE);
    if (config_ != nullptr) {
        decoder_ = ps_init(config_);
    }
    if (decoder_ == nullptr) {
        unload();
        failure = "The PocketSphinx model in " + model_.folder.string() + " could not be loaded";
        return false;
    }
    static_assert(std::is_same_v<mfcc_t, float>, "PocketSphinx built with fixed-point features");
    if (feat_t* features = ps_get_feat(decoder_); features && features->cmn_struct) {
        initialCepstralMean_.resize(static_cast<std::size_t>(features->cmn_struct->veclen));
        cmn_live_get(features->cmn_struct, initialCepstralMean_.data());
    }
    decodingStream_ = 0;
    inUtterance_ = false;
    addedWords_.clear();
    loaded_ = true;
    return true;
}

void PocketSphinxDecoder::unload() {
    if (decoder_ != nullptr) {
        ps_free(decoder_);
        decoder_ = nullptr;
    }
    if (config_ != nullptr) {
        cmd_ln_free_r(config_);
        config_ = nullptr;
    }
    inUtterance_ = false;
    preparedSerial_ = 0;
    loaded_ = false;
}

void PocketSphinxDecoder::applyHints(const SegmentRecognizer::RequestOptions& options) {
    // Adding words re-initialises the search, which cannot happen inside an utterance; the task
    // that follows the end of this one brings the same hints again.
    if (inUtterance_) {
        return;
    }
    std::vector<std::pair<std::string, std::string>> additions;
    for (const std::string& hint : options.contextualStrings) {
        for (const std::string& word : wordsOf(hint)) {
            if (addedWords_.count(word) != 0 || !pronunciation(decoder_, word).empty()) {
                continue;
            }
            const std::string lower = asciiLower(word);
            std::string phones = lower == word ? std::string() : pronunciation(decoder_, lower);
            if (phones.empty()) {
                continue;  // no pronunciation to give it
            }
            addedWords_.insert(word);
            additions.emplace_back(word, std::move(phones));
        }
    }
    for (std::size_t i = 0; i < additions.size(); ++i) {
        // Updating the search once, with the last word, is enough and much cheaper.
        ps_add_word(decoder_, additions[i].first.c_str(), additions[i].second.c_str(),
                    i + 1 == additions.size() ? TRUE : FALSE);
    }
}

void PocketSphinxDecoder::startFromTheModelsChannel() {
    // PocketSphinx adapts to the channel over the utterances it hears: the cepstral mean (updated
    // at every utterance's end) and the voice detector's noise level. Carried from one dictation
    // to the next, they made the same audio decode differently depending on what came before
    // (measured: flite speech through the virtual microphone gained a leading "if" from the
    // second dictation on). Each dictation therefore starts from the model's own values.
    ps_start_stream(decoder_);
    if (feat_t* features = ps_get_feat(decoder_);
        features && features->cmn_struct && !initialCepstralMean_.empty()) {
        cmn_live_set(features->cmn_struct, initialCepstralMean_.data());
    }
}

std::string PocketSphinxDecoder::hypothesis() {
    const char* text = ps_get_hyp(decoder_, nullptr);
    return text != nullptr ? std::string(text) : std::string();
}

void PocketSphinxDecoder::abandonUtterance() {
    if (inUtterance_ && decoder_ != nullptr) {
        ps_end_utt(decoder_);
    }
    inUtterance_ = false;
    heardSpeech_ = false;
    lastPartial_.clear();
}

void PocketSphinxDecoder::process(const Item& item,
                                  const std::shared_ptr<PocketSphinxRecognitionTask>& task) {
    if (item.caughtUp) {
        // Every buffer before the mark has been decoded and its changed hypothesis delivered.
        item.caughtUp();
        return;
    }
    if (item.stream != decodingStream_) {
        // A new dictation: whatever was left of the last one's utterance is not part of it.
        abandonUtterance();
        startFromTheModelsChannel();
        decodingStream_ = item.stream;
    }
    if (item.endOfAudio) {
        finishStream(task, item.stream);
        return;
    }
    if (!inUtterance_) {
        ps_start_utt(decoder_);
        inUtterance_ = true;
        heardSpeech_ = false;
        lastPartial_.clear();
    }
    ps_process_raw(decoder_, item.samples.data(), item.samples.size(), FALSE, FALSE);
    const bool inSpeech = ps_get_in_speech(decoder_) != 0;
    heardSpeech_ = heardSpeech_ || inSpeech;
    if (heardSpeech_ && !inSpeech) {
        ps_end_utt(decoder_);
        inUtterance_ = false;
        heardSpeech_ = false;
        const bool partialShown = !lastPartial_.empty();
        lastPartial_.clear();
        std::string text = hypothesis();
        // A burst of noise can end in an empty hypothesis: no segment, the task keeps listening,
        // unless partials were shown for it; then an empty final takes them back.
        if (!text.empty() || partialShown) {
            deliverFinal(task, std::move(text));
        }
        return;
    }
    std::string partial = hypothesis();
    if (!partial.empty() && partial != lastPartial_) {
        lastPartial_ = partial;
        if (task->options().shouldReportPartialResults) {
            task->deliver(Result{std::move(partial), false}, std::nullopt, false);
        }
    }
}

void PocketSphinxDecoder::finishStream(const std::shared_ptr<PocketSphinxRecognitionTask>& task,
                                       std::uint64_t stream) {
    std::string text;
    const bool partialShown = !lastPartial_.empty();
    if (inUtterance_) {
        ps_end_utt(decoder_);
        text = hypothesis();
    }
    inUtterance_ = false;
    heardSpeech_ = false;
    lastPartial_.clear();
    if (!text.empty() || partialShown) {
        deliverFinal(task, std::move(text));
    } else {
        endTask(task, std::nullopt, Error{Error::noSpeechDetectedCode, "No speech detected"});
    }
    std::function<void()> endDecoded;
    {
        const std::lock_guard lock(mutex_);
        // A stream dropped meanwhile has run its callback already; a newer one keeps its own.
        if (stream == stream_) {
            endDecoded = std::exchange(endDecoded_, nullptr);
        }
    }
    if (endDecoded) {
        endDecoded();
    }
}

void PocketSphinxDecoder::deliverFinal(const std::shared_ptr<PocketSphinxRecognitionTask>& task,
                                       std::string text) {
    if (spaceSeparated_ && !text.empty()) {
        text += ' ';
    }
    endTask(task, Result{std::move(text), true}, std::nullopt);
}

void PocketSphinxDecoder::endTask(const std::shared_ptr<PocketSphinxRecognitionTask>& task,
                                  const std::optional<Result>& result,
                                  const std::optional<Error>& error) {
    bool idle = false;
    {
        // Detached first: decoding pauses until the next request, which may be started from the
        // handler itself.
        const std::lock_guard lock(mutex_);
        if (attached_ == task) {
            attached_.reset();
        }
        idle = !attached_ && !stopping_;
    }
    if (idle) {
        scheduleIdleRelease();
    }
    task->deliver(result, error, true);
}

}  // namespace kelvo::platform
