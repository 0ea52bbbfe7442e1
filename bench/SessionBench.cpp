// The session controller's own overhead at the end of a dictation: from the stop request to the
// moment the final text reaches the inserter. The 650 ms drain is excluded (trigger "menu"), the
// clock runs every timer at once, and the capture, recogniser and inserter are fakes that answer
// immediately, so what remains is the controller's work: the task hand-offs through the clock and
// the Qt event loop, awaiting the recogniser stop and the event task, composing the text, the
// dictionary corrections and the filler removal. Arguments: dictionary entries, transcript
// characters (Japanese).

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KelvoVoiceMac/session/MenuBarManager.h"

namespace {

using namespace kelvo;
using SteadyClock = std::chrono::steady_clock;

// Runs every scheduled callback on the next drain, whatever its delay.
class ImmediateClock final : public platform::Clock {
  public:
    TimePoint now() const override { return SteadyClock::now(); }
    std::uint64_t schedule(Duration, std::function<void()> callback) override {
        queue_.emplace_back(++nextId_, std::move(callback));
        return nextId_;
    }
    void cancel(std::uint64_t id) override {
        std::erase_if(queue_, [id](auto& e) { return e.first == id; });
    }
    bool drain() {
        bool ran = false;
        while (!queue_.empty()) {
            auto callback = std::move(queue_.front().second);
            queue_.pop_front();
            callback();
            ran = true;
        }
        return ran;
    }

  private:
    std::uint64_t nextId_ = 0;
    std::deque<std::pair<std::uint64_t, std::function<void()>>> queue_;
};

class InstantAudio final : public app::DictationAudioSource {
  public:
    QCoro::Task<std::shared_ptr<app::Channel<app::AudioBuffer>>> start() override {
        audio_ = std::make_shared<app::Channel<app::AudioBuffer>>();
        // A copy: QCoro 0.8's return_value(U&&) would move out of the member.
        std::shared_ptr<app::Channel<app::AudioBuffer>> result = audio_;
        co_return result;
    }
    void stop() override { audio_->close(); }

  private:
    std::shared_ptr<app::Channel<app::AudioBuffer>> audio_;
};

class InstantRecognizer final : public app::DictationRecognizer {
  public:
    void setContextualStrings(std::vector<std::string>) override {}
    std::shared_ptr<app::Channel<app::TranscriptionEvent>> startTranscription(
        std::shared_ptr<app::Channel<app::AudioBuffer>>) override {
        events = std::make_shared<app::Channel<app::TranscriptionEvent>>();
        return events;
    }
    QCoro::Task<> stop() override {
        events->close();
        co_return;
    }
    QCoro::Task<> stopAfterCatchingUp() override { return stop(); }

    std::shared_ptr<app::Channel<app::TranscriptionEvent>> events;
};

class TimestampingInserter final : public app::DictationTextInserter {
  public:
    QCoro::Task<bool> insert(std::string text, bool) override {
        calledAt = SteadyClock::now();
        insertedBytes = text.size();
        co_return true;
    }

    std::optional<SteadyClock::time_point> calledAt;
    std::size_t insertedBytes = 0;
};

class NullLog final : public platform::SystemLog, public platform::TraceOutput {
  public:
    void write(std::string_view) override {}
};

class NullStatus final : public app::StatusItemPresenter {
  public:
    void refresh(app::RecordingState) override {}
    void setDictationItemEnabled(bool) override {}
};

class MemoryPreferences final : public platform::Preferences {
  public:
    void registerDefault(const std::string&, bool value) override { value_ = value; }
    bool boolValue(const std::string&) const override { return value_; }
    void setBool(const std::string&, bool value) override { value_ = value; }
    // The session reads only the filler switch; the other kinds answer with their defaults.
    std::string stringValue(const std::string&, const std::string& fallback) const override {
        return fallback;
    }
    void setString(const std::string&, const std::string&) override {}
    std::vector<std::string> stringListValue(const std::string&) const override { return {}; }
    void setStringList(const std::string&, const std::vector<std::string>&) override {}
    int intValue(const std::string&, int fallback) const override { return fallback; }
    void setInt(const std::string&, int) override {}

  private:
    bool value_ = true;
};

class VectorStore final : public DictionaryStore {
  public:
    explicit VectorStore(std::vector<DictionaryEntry> entries) : entries_(std::move(entries)) {}
    std::vector<DictionaryEntry> loadEntries() override { return entries_; }
    void saveEntries(const std::vector<DictionaryEntry>& entries) override { entries_ = entries; }

  private:
    std::vector<DictionaryEntry> entries_;
};

std::vector<DictionaryEntry> makeEntries(int count) {
    std::vector<DictionaryEntry> entries;
    for (int i = 0; i < count; ++i) {
        DictionaryEntry entry;
        entry.id = "00000000-0000-0000-0000-" + std::to_string(100000000000 + i);
        entry.canonicalText = "用語" + std::to_string(i);
        entry.readings = {"ようご" + std::to_string(i)};
        entry.commonMisrecognitions = {"要語" + std::to_string(i)};
        entry.priority = i % 7;
        entries.push_back(std::move(entry));
    }
    return entries;
}

// Japanese dictation-like text of about `characters` characters with fillers and a few terms.
std::vector<std::string> makeSegments(int characters) {
    const std::string sentence =
        "えーと、今日は要語3について説明します。まあ、ようご12も大事です。";
    const int sentenceCharacters = 34;
    std::vector<std::string> segments;
    for (int written = 0; written < characters; written += sentenceCharacters) {
        segments.push_back(sentence);
    }
    return segments;
}

void drive(ImmediateClock& clock, const std::function<bool()>& done) {
    while (!done()) {
        QCoreApplication::sendPostedEvents();
        clock.drain();
    }
}

void BM_StopToInsert(benchmark::State& state) {
    static int argc = 1;
    static char name[] = "session_bench";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* application = new QCoreApplication(argc, argv);
    (void)application;

    ImmediateClock clock;
    InstantAudio audio;
    InstantRecognizer speech;
    TimestampingInserter inserter;
    NullLog log;
    NullStatus status;
    MemoryPreferences preferences;
    auto store = std::make_shared<VectorStore>(makeEntries(static_cast<int>(state.range(0))));
    auto engine = std::make_shared<DictionaryCorrectionEngine>(store);
    app::MenuBarManager manager(
        {audio, speech, inserter, store, engine, preferences, clock, log, log, status});
    auto segments = makeSegments(static_cast<int>(state.range(1)));

    for (auto _ : state) {
        manager.startDictation("menu");
        drive(clock, [&] {
            return manager.recordingState() == app::RecordingState::recording &&
                   !manager.isTransitioning();
        });
        for (const auto& segment : segments) {
            speech.events->send(app::TranscriptionEvent::final_(segment));
        }
        speech.events->send(app::TranscriptionEvent::partial("最後の部分"));
        drive(clock, [&] { return !manager.partialText().empty(); });
        inserter.calledAt.reset();

        auto stoppedAt = SteadyClock::now();
        manager.stopDictation("menu");
        drive(clock, [&] { return inserter.calledAt.has_value(); });
        state.SetIterationTime(
            std::chrono::duration<double>(*inserter.calledAt - stoppedAt).count());

        drive(clock, [&] { return !manager.isTransitioning(); });
    }
    state.counters["insertedBytes"] = static_cast<double>(inserter.insertedBytes);
}

BENCHMARK(BM_StopToInsert)
    ->ArgNames({"entries", "chars"})
    ->Args({0, 40})
    ->Args({100, 40})
    ->Args({100, 400})
    ->Args({1000, 400})
    ->Args({1000, 2000})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
