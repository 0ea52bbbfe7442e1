#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QCoroTask>

#include <atomic>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "KelvoVoiceMac/app/SpeechBackends.h"
#include "KelvoVoiceMac/session/AudioBuffer.h"
#include "KelvoVoiceMac/session/AudioCaptureService.h"
#include "KelvoVoiceMac/session/AudioConverter.h"
#include "KelvoVoiceMac/session/CaptureError.h"
#include "KelvoVoiceMac/session/Channel.h"
#include "KelvoVoiceMac/session/DictationTranscript.h"
#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "KelvoVoiceMac/session/SpeechService.h"
#include "KelvoVoiceMac/session/TranscriptionEvent.h"
#include "cli/commands/AudioFileReader.h"
#include "cli/commands/CommandGroups.h"
#include "cli/commands/DictionaryAccess.h"
#include "cli/commands/ModelInventoryAccess.h"
#include "cli/commands/SecondsOption.h"
#include "core/models/Json.h"
#include "platform/AudioInputError.h"
#include "platform/QtClock.h"
#include "platform/TraceOutput.h"
#include "platform/linux/PocketSphinxModelLocator.h"
#include "platform/linux/PulseAudioInput.h"
#include "platform/whisper/BuiltInModelEngine.h"

namespace kelvo::cli {

namespace {

using app::AudioBuffer;
using app::Channel;
using app::DictationTranscript;
using app::PreferenceKeys;
using app::TranscriptionEvent;

constexpr const char* kDefaultLocale = "ja-JP";

/// Everything the dictation loop waits for, from whichever thread it comes, in one stream read on
/// the main thread.
struct Signal {
    enum class Kind {
        event,          // a recogniser event
        eventsEnded,    // SpeechService finished its event stream
        stopRequested,  // Enter, Ctrl+C, SIGTERM or --seconds
        trace,          // a "[SpeechService] ..." line (--trace)
    };
    Kind kind;
    TranscriptionEvent event{};
    std::string line{};
};

using Signals = Channel<Signal>;

/// Trace lines travel to the main thread with the other signals, so standard error is written
/// from one thread only (and the loop sees recognition errors).
class SignalTraceOutput final : public platform::TraceOutput {
  public:
    explicit SignalTraceOutput(std::shared_ptr<Signals> signals) : signals_(std::move(signals)) {}
    void write(std::string_view line) override {
        signals_->send(Signal{Signal::Kind::trace, {}, std::string(line)});
    }

  private:
    std::shared_ptr<Signals> signals_;
};

constexpr std::string_view kRecognitionErrorTrace = "[SpeechService] Recognition error: ";

/// The recogniser's audio for a file: the file's reads through the application's converter, as
/// live audio would come from the capture service, decoded while it is recognised. Opening throws
/// when the file cannot be read; feed() throws when decoding fails or the file holds no audio.
class FileAudio {
  public:
    // Buffers decoded ahead of the recogniser: some seconds of audio, enough to keep it busy
    // while its model loads, and all the memory a file of any length takes before it.
    static constexpr std::size_t buffersAhead = 64;

    explicit FileAudio(const std::filesystem::path& file)
        : file_(file), reader_(file), converter_(app::AudioConverter::make(reader_.format())) {
        if (!converter_) {
            throw Error("cannot read audio file '" + file.string() + "': unsupported sample rate");
        }
    }

    /// Sends the file's buffers into `audio`, waiting while it is full, and closes it; stops early
    /// once `audio` is closed.
    void feed(Channel<AudioBuffer>& audio) {
        bool converted = false;
        const auto send = [&](std::optional<AudioBuffer> buffer) {
            if (buffer) {
                converted = true;
                audio.send(std::move(*buffer));
            }
        };
        std::uint64_t frames = 0;
        try {
            frames = reader_.read(app::AudioCaptureService::bufferSize,
                                  [&](const platform::AudioInput::Frames& read) {
                                      send(converter_->convert(read));
                                      return !audio.isClosed();
                                  });
            send(converter_->flush());
        } catch (...) {
            audio.close();
            throw;
        }
        audio.close();
        if (frames == 0 || !converted) {
            throw Error("audio file '" + file_.string() + "' contains no audio");
        }
    }

  private:
    std::filesystem::path file_;
    AudioFileReader reader_;
    std::shared_ptr<app::AudioConverter> converter_;
};

std::string installedModelsText(const platform::PocketSphinxModelLocator& locator) {
    std::string text;
    for (const platform::PocketSphinxModel& model : locator.installed()) {
        text += (text.empty() ? "" : ", ") + model.locale;
    }
    return text.empty() ? "none" : text;
}

/// While alive in microphone mode, SIGINT and SIGTERM are blocked in this thread and in every
/// thread started meanwhile, and a watcher thread turns them into stop requests; a second thread
/// turns a line on standard input (Enter) into one. Both are ended and joined on destruction.
class StopRequestWatch {
  public:
    explicit StopRequestWatch(std::shared_ptr<Signals> signals) : signals_(std::move(signals)) {
        sigemptyset(&interrupts_);
        sigaddset(&interrupts_, SIGINT);
        sigaddset(&interrupts_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &interrupts_, &previousMask_);
        signalWatcher_ = std::thread([this] { watchSignals(); });
        inputWatcher_ = std::thread([this] { watchInput(); });
    }
    ~StopRequestWatch() {
        done_ = true;
        signalWatcher_.join();
        inputWatcher_.join();
        // An interrupt that came after the stop (a second Ctrl+C) is consumed: we are ending.
        const timespec now{};
        while (sigtimedwait(&interrupts_, nullptr, &now) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
    }
    StopRequestWatch(const StopRequestWatch&) = delete;
    StopRequestWatch& operator=(const StopRequestWatch&) = delete;

  private:
    void requestStop() { signals_->send(Signal{Signal::Kind::stopRequested}); }

    void watchSignals() {
        while (!done_) {
            const timespec slice{0, 100'000'000};
            if (sigtimedwait(&interrupts_, nullptr, &slice) > 0) {
                requestStop();
            }
        }
    }

    void watchInput() {
        bool open = true;
        while (!done_ && open) {
            pollfd input{STDIN_FILENO, POLLIN, 0};
            if (poll(&input, 1, 100) <= 0) {
                continue;
            }
            char bytes[256];
            const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
            if (count <= 0) {
                open = false;  // no terminal (or /dev/null): only signals and --seconds stop
            } else if (std::string_view(bytes, static_cast<std::size_t>(count)).find('\n') !=
                       std::string_view::npos) {
                requestStop();
            }
        }
    }

    std::shared_ptr<Signals> signals_;
    sigset_t interrupts_{};
    sigset_t previousMask_{};
    std::atomic<bool> done_ = false;
    std::thread signalWatcher_;
    std::thread inputWatcher_;
};

struct DictateOptions {
    std::optional<std::filesystem::path> file;
    std::string locale = kDefaultLocale;
    // The application's recognition setting words: "automatic" or "fallback".
    std::string engine = PreferenceKeys::defaultRecognitionEngine;
    std::optional<std::string> model;
    std::filesystem::path dictionary;
    bool keepFillers = false;
    bool events = false;
    bool trace = false;
    std::optional<double> seconds;
};

/// One dictation: the application's recognition path (converter, SpeechService with the
/// application's engines, the model engine built the same way, recognisers) on a file or the
/// microphone, ending with the session's own transcript of it. The model that serves the locale
/// starts loading at construction, so that it is ready, or nearly, when the audio comes;
/// construction throws kelvo::Error when
/// --model names no installed model for the locale.
class Dictation {
  public:
    Dictation(const DictateOptions& options, const Environment& environment,
              std::ostream& diagnostics)
        : options_(options),
          diagnostics_(diagnostics),
          signals_(std::make_shared<Signals>()),
          trace_(signals_),
          backends_(app::SpeechBackends::Options{
                        .locations = environment.dataLocations(),
                        .catalog = openModelCatalog(environment),
                        .modelSettings = {options.model.value_or(""), ""},
                        .modelIdleReleaseMinutes = PreferenceKeys::defaultModelIdleReleaseMinutes,
                        .isModelEngineWanted =
                            [wanted = options.engine != PreferenceKeys::recognitionEngineFallback] {
                                return wanted;
                            },
                        .log =
                            [signals = signals_](const std::string& line) {
                                signals->send(Signal{Signal::Kind::trace, {}, line});
                            },
                        .systemLocale = platform::PocketSphinxModelLocator::systemLocale(),
                    },
                    clock_),
          models_(backends_.modelInventory()),
          modelEngine_(backends_.modelEngine()),
          recognizers_(backends_.segmentRecognizers()),
          speech_(std::make_shared<app::SpeechService>(modelEngine_, recognizers_, clock_, trace_,
                                                       options.locale)),
          stderrIsTerminal_(isatty(STDERR_FILENO) == 1) {
        checkModel();
        if (modelEngine_.isAvailable()) {
            backends_.builtInModelEngine().loadInBackground(options.locale);
        }
    }

  private:
    /// Throws kelvo::Error when --model names no installed model for the locale.
    void checkModel() const {
        if (!options_.model) {
            return;
        }
        const std::string& name = *options_.model;
        const ModelCatalogEntry* entry = models_.catalog().find(name);
        if (!entry) {
            throw Error("unknown model '" + name + "' (see kelvo models list)");
        }
        if (!models_.isInstalled(*entry)) {
            throw Error("model '" + name + "' is not installed (install it with kelvo models " +
                        "install " + name + ")");
        }
        if (models_.modelForLocale(options_.locale) != entry) {
            throw Error("model '" + name + "' does not recognise " + options_.locale +
                        " (see kelvo models list)");
        }
    }

  public:
    /// Throws kelvo::Error when no engine serves the locale.
    void checkLocale() {
        const ModelCatalogEntry* serving = models_.modelForLocale(options_.locale);
        const bool modelInstalled = serving && models_.isInstalled(*serving);
        if (modelEngine_.isAvailable() && modelInstalled) {
            return;
        }
        if (recognizers_.locator().find(options_.locale)) {
            return;
        }
        std::string advice = "put a PocketSphinx model for it in " +
                             (recognizers_.locator().roots().front() / options_.locale).string() +
                             "/ (an acoustic model folder, a .dict and a .lm.bin file)";
        if (modelInstalled) {
            advice = "the installed speech model " + serving->name + " needs the model engine, " +
                     (platform::BuiltInModelEngine::isBuilt()
                          ? "which --engine fallback turns off"
                          : "and this build has none (it needs whisper.cpp)") +
                     "; or " + advice;
        } else if (modelEngine_.isAvailable()) {
            advice =
                "install a speech model with kelvo models install --recommended (or NAME, see "
                "kelvo models list) or " +
                advice;
        }
        throw Error("no speech recognition model for " + options_.locale +
                    " (installed: " + installedModelsText(recognizers_.locator()) + "); " + advice);
    }

    void setHints(std::vector<std::string> hints) {
        speech_->setContextualStrings(std::move(hints));
    }

    /// The recognised text of the file, or of the microphone without one; runs the event loop
    /// until the dictation is over.
    DictationTranscript run(std::unique_ptr<FileAudio> file) {
        std::exception_ptr failure;
        QCoro::waitFor(dictate(std::move(file), failure));
        if (forwarder_.joinable()) {
            forwarder_.join();
        }
        if (fileAudio_) {
            fileAudio_->close();  // a dictation that ended early releases the decoding too
        }
        if (fileFeeder_.joinable()) {
            fileFeeder_.join();
        }
        if (failure) {
            std::rethrow_exception(failure);
        }
        if (fileFailure_) {
            std::rethrow_exception(fileFailure_);
        }
        if (transcript_.text().empty() && recognitionError_) {
            throw Error("speech recognition failed: " + *recognitionError_);
        }
        return transcript_;
    }

  private:
    QCoro::Task<> dictate(std::unique_ptr<FileAudio> file, std::exception_ptr& failure) {
        try {
            co_await dictateOrThrow(std::move(file));
        } catch (...) {
            failure = std::current_exception();
        }
    }

    QCoro::Task<> dictateOrThrow(std::unique_ptr<FileAudio> file) {
        std::shared_ptr<Channel<AudioBuffer>> audio;
        std::unique_ptr<StopRequestWatch> stopWatch;
        if (file) {
            // Decoded on a thread of its own while the recogniser starts and loads its model, and
            // then as fast as the recogniser takes it (its text does not depend on how fast the
            // audio comes); the audio ends with the file.
            audio = std::make_shared<Channel<AudioBuffer>>(FileAudio::buffersAhead);
            fileAudio_ = audio;
            fileFeeder_ = std::thread([this, audio, file = std::move(file)] {
                try {
                    file->feed(*audio);
                } catch (...) {
                    fileFailure_ = std::current_exception();
                }
            });
            audioEnded_ = true;
        } else {
            stopWatch = std::make_unique<StopRequestWatch>(signals_);
            microphone_ = std::make_unique<platform::PulseAudioInput>();
            capture_ = std::make_unique<app::AudioCaptureService>(*microphone_);
            try {
                audio = co_await capture_->start();
            } catch (const app::CaptureError& error) {
                // On Linux a refusal is the sound server's: say where to look.
                const bool refused =
                    error.code() == app::CaptureError::Code::microphonePermissionDenied;
                throw Error(std::string("cannot record from the microphone: ") + error.what() +
                            (refused ? " (the PulseAudio or PipeWire server refused the connection "
                                       "or is not running)"
                                     : ""));
            } catch (const platform::AudioInputError& error) {
                throw Error(std::string("cannot record from the microphone: ") + error.what());
            }
            if (options_.seconds) {
                const auto delay = std::chrono::duration_cast<platform::Clock::Duration>(
                    std::chrono::duration<double>(*options_.seconds));
                clock_.schedule(delay, [signals = signals_] {
                    signals->send(Signal{Signal::Kind::stopRequested});
                });
            }
            diagnostics_ << "Listening; press Enter or Ctrl+C to stop." << std::endl;
        }

        const std::shared_ptr<Channel<TranscriptionEvent>> events =
            speech_->startTranscription(audio);
        forwarder_ = std::thread([events, signals = signals_] {
            while (std::optional<TranscriptionEvent> event = events->receive()) {
                signals->send(Signal{Signal::Kind::event, std::move(*event)});
            }
            signals->send(Signal{Signal::Kind::eventsEnded});
        });
        if (audioEnded_) {
            finishOnceDecoded();
        }

        while (std::optional<Signal> signal = co_await signals_->next()) {
            switch (signal->kind) {
                case Signal::Kind::event:
                    show(signal->event);
                    break;
                case Signal::Kind::trace:
                    if (signal->line.starts_with(kRecognitionErrorTrace)) {
                        recognitionError_ = signal->line.substr(kRecognitionErrorTrace.size());
                    }
                    if (options_.trace) {
                        clearLiveLine();
                        diagnostics_ << signal->line << std::endl;
                    }
                    break;
                case Signal::Kind::stopRequested:
                    if (!audioEnded_ && capture_) {
                        capture_->stop();
                        audioEnded_ = true;
                        finishOnceDecoded();
                    }
                    break;
                case Signal::Kind::eventsEnded:
                    // Also when no recogniser could start: stop() then only resets the service.
                    if (finishing_) {
                        co_await *finishing_;
                    } else {
                        co_await speech_->stop();
                    }
                    if (capture_) {
                        capture_->stop();
                    }
                    clearLiveLine();
                    co_return;
            }
        }
    }

    /// Once the audio has ended, the dictation ends when the engine has decoded all of it, so
    /// that the last segment arrives as a final instead of being cancelled; the event stream then
    /// ends, which ends the loop.
    void finishOnceDecoded() {
        if (!finishing_) {
            finishing_.emplace(speech_->finishInput());
        }
    }

    void show(const TranscriptionEvent& event) {
        transcript_.apply(event);
        const bool isFinal = event.kind == TranscriptionEvent::Kind::final_;
        if (options_.events) {
            Json line = Json::object();
            line["type"] = isFinal ? "final" : "partial";
            line["text"] = event.text;
            diagnostics_ << line.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
        } else if (!options_.file) {
            showLiveLine(transcript_.text());
        }
    }

    void showLiveLine(const std::string& text) {
        if (!stderrIsTerminal_) {
            diagnostics_ << text << std::endl;
            return;
        }
        // The end of the text that fits on one line, cut at a character boundary.
        winsize size{};
        std::size_t columns = 80;
        if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1) {
            columns = size.ws_col;
        }
        std::size_t start = text.size();
        std::size_t characters = 0;
        while (start > 0 && characters + 1 < columns) {
            --start;
            if ((static_cast<unsigned char>(text[start]) & 0xC0) != 0x80) {
                // Wide (CJK) characters take two columns.
                characters += static_cast<unsigned char>(text[start]) >= 0xE3 ? 2 : 1;
            }
        }
        diagnostics_ << "\r\033[K" << text.substr(start) << std::flush;
        liveLineShown_ = true;
    }

    void clearLiveLine() {
        if (liveLineShown_) {
            diagnostics_ << "\r\033[K" << std::flush;
            liveLineShown_ = false;
        }
    }

    const DictateOptions& options_;
    std::ostream& diagnostics_;
    std::shared_ptr<Signals> signals_;
    // The clock before the recognisers (their idle timers) and the service (its restarts).
    platform::QtClock clock_;
    SignalTraceOutput trace_;
    // The application's speech wiring, and the parts of it the dictation looks at.
    app::SpeechBackends backends_;
    ModelInventory& models_;
    // The model engine as the recognition setting lets the service see it: none for "fallback".
    platform::ModelEngine& modelEngine_;
    platform::PocketSphinxRecognizerProvider& recognizers_;
    std::shared_ptr<app::SpeechService> speech_;
    std::unique_ptr<platform::PulseAudioInput> microphone_;
    std::unique_ptr<app::AudioCaptureService> capture_;
    std::thread forwarder_;
    std::shared_ptr<Channel<AudioBuffer>> fileAudio_;
    std::thread fileFeeder_;
    // Written by the feeder thread, read once it has been joined.
    std::exception_ptr fileFailure_;
    const bool stderrIsTerminal_;
    bool audioEnded_ = false;
    std::optional<QCoro::Task<>> finishing_;
    bool liveLineShown_ = false;
    std::optional<std::string> recognitionError_;
    DictationTranscript transcript_;
};

/// The process's QCoreApplication, made once when the first dictation needs an event loop.
void ensureApplication() {
    if (QCoreApplication::instance() != nullptr) {
        return;
    }
    static int argc = 1;
    static char name[] = "kelvo";
    static char* argv[] = {name, nullptr};
    static QCoreApplication application(argc, argv);
}

std::string trimmedEnd(std::string text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\n' || text.back() == '\t')) {
        text.pop_back();
    }
    return text;
}

void runDictate(const ParsedArguments& arguments, CommandContext& context) {
    DictateOptions options;
    options.seconds = secondsOption(arguments);
    if (auto file = arguments.value("--file")) {
        options.file = *file;
    }
    if (options.file && options.seconds) {
        throw UsageError("--seconds applies to the microphone only, not to --file");
    }
    options.locale = arguments.value("--locale").value_or(kDefaultLocale);
    options.engine = arguments.value("--engine").value_or(PreferenceKeys::defaultRecognitionEngine);
    if (options.engine != PreferenceKeys::recognitionEngineAutomatic &&
        options.engine != PreferenceKeys::recognitionEngineFallback) {
        throw UsageError("invalid value '" + options.engine + "' for --engine (expected " +
                         PreferenceKeys::recognitionEngineAutomatic + " or " +
                         PreferenceKeys::recognitionEngineFallback + ")");
    }
    options.model = arguments.value("--model");
    if (options.model && options.engine == PreferenceKeys::recognitionEngineFallback) {
        throw UsageError("--model applies to the model engine, not to --engine fallback");
    }
    options.dictionary = context.dictionaryFile(arguments);
    options.keepFillers = arguments.has("--keep-fillers");
    options.events = arguments.has("--events");
    options.trace = arguments.has("--trace");

    // Everything that can fail before any audio is touched fails here, first. The model starts
    // loading before the file is opened or the microphone opens.
    const auto dictionary = openCorrectionEngine(options.dictionary);
    ensureApplication();
    DictationTranscript transcript;
    {
        Dictation dictation(options, context.environment(), context.diagnostics());
        // Before the file: without a recogniser for the locale there is nothing to decode it for.
        dictation.checkLocale();
        std::unique_ptr<FileAudio> file;
        if (options.file) {
            file = std::make_unique<FileAudio>(*options.file);
        }
        dictation.setHints(dictionary->hints(DictionaryScope::all));
        transcript = dictation.run(std::move(file));
    }
    context.writeText(trimmedEnd(transcript.finished(dictionary.get(), !options.keepFillers).text));
}

}  // namespace

void registerDictateCommand(CommandRegistry& registry) {
    registry.add(Command{
        "dictate",
        "[--file AUDIO] [--locale L] [--engine automatic|fallback] [--model NAME] "
        "[--dictionary PATH] [--keep-fillers] [--events] [--trace] [--seconds N]",
        "Recognise speech the way the app does (recogniser, dictionary, filler removal) and print "
        "the text: from AUDIO (any file FFmpeg reads), or from the default microphone until "
        "Enter, Ctrl+C or N seconds, showing the partial text on standard error. --locale "
        "defaults to ja-JP. The recogniser is the app's: with --engine automatic (the default) "
        "the installed speech model that serves the locale (the best one, or NAME from kelvo "
        "models list) when this build has the whisper.cpp engine, else the PocketSphinx "
        "fallback, which --engine fallback always takes. --events writes every partial and final "
        "result to standard error as one JSON object per line; --trace adds the recogniser's "
        "trace lines.",
        ArgumentParser()
            .option("--file")
            .option("--locale")
            .option("--engine")
            .option("--model")
            .option("--dictionary")
            .option("--seconds")
            .flag("--keep-fillers")
            .flag("--events")
            .flag("--trace"),
        runDictate,
    });
}

}  // namespace kelvo::cli
