// Text engines and JSON stores at the sizes a heavy user reaches: correction of one ~300-character
// dictation against dictionaries of 100, 1,000 and 10,000 entries, filler removal over one
// dictation and over a long transcript, a history append when the history is full (500 records,
// atomic write with fsync included), and loading a 10,000-entry dictionary file.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/BenchFolder.h"
#include "core/engines/DictionaryCorrectionEngine.h"
#include "core/engines/FillerRemovalEngine.h"
#include "core/services/JSONDictionaryStore.h"
#include "core/services/JSONHistoryStore.h"
#include "core/support/Unicode.h"
#include "core/support/Uuid.h"

namespace {

namespace fs = std::filesystem;

using kelvo::bench::BenchFolder;

class MemoryDictionary : public kelvo::DictionaryStore {
  public:
    explicit MemoryDictionary(std::vector<kelvo::DictionaryEntry> entries)
        : entries_(std::move(entries)) {}
    std::vector<kelvo::DictionaryEntry> loadEntries() override { return entries_; }
    void saveEntries(const std::vector<kelvo::DictionaryEntry>& entries) override {
        entries_ = entries;
    }

  private:
    std::vector<kelvo::DictionaryEntry> entries_;
};

/// Hiragana and katakana words of 2 to 6 characters, repeatable from a seed.
class WordMaker {
  public:
    explicit WordMaker(std::uint32_t seed) : random_(seed) {}

    std::string hiragana() { return word(U'\u3041', 83); }
    std::string katakana() { return word(U'\u30A1', 86); }

  private:
    std::string word(char32_t first, int span) {
        std::uniform_int_distribution<int> length(2, 6);
        std::uniform_int_distribution<int> offset(0, span - 1);
        std::string out;
        for (int i = length(random_); i > 0; --i) {
            out += kelvo::unicode::encode(first + static_cast<char32_t>(offset(random_)));
        }
        return out;
    }

    std::mt19937 random_;
};

constexpr const char* kDictation =
    "えーと、今日はとうきょうの本社でけるぼぼいすの定例会議がありました。あのー、まず最初に"
    "先週のリリースについて振り返りを行い、えーあいの認識精度が前回より改善したことを確認しま"
    "した。次に、ユーザーから寄せられた要望のうち、辞書の編集画面を使いやすくしてほしいという"
    "声が多かったので、まあ、来月までに改善案をまとめることになりました。それから、なんか、"
    "音声入力のショートカットが他のアプリと競合するケースがあるという報告もあり、うーん、設定"
    "で変更できるようにする方向で検討します。最後に、次回の会議は来週の水曜日の午後三時から、"
    "おおさか支社とオンラインでつないで行う予定です。以上です。";

/// Entries whose readings occur in the dictation, as in a real dictionary.
std::vector<kelvo::DictionaryEntry> matchingEntries() {
    auto entry = [](std::string canonical, std::vector<std::string> readings) {
        return kelvo::DictionaryEntry{
            kelvo::makeUuid(), std::move(canonical), std::move(readings), {}, "", 10, true,
            std::nullopt};
    };
    return {entry("東京", {"とうきょう"}), entry("KelvoVoice", {"けるぼぼいす", "ケルボボイス"}),
            entry("AI", {"えーあい"}), entry("大阪", {"おおさか"})};
}

std::vector<kelvo::DictionaryEntry> dictionary(int count) {
    WordMaker words(static_cast<std::uint32_t>(count));
    std::vector<kelvo::DictionaryEntry> entries = matchingEntries();
    while (static_cast<int>(entries.size()) < count) {
        const auto index = entries.size();
        kelvo::DictionaryEntry entry;
        entry.id = kelvo::makeUuid();
        entry.canonicalText = words.katakana() + "用語";
        entry.readings = {words.hiragana(), words.hiragana()};
        entry.commonMisrecognitions = {words.katakana()};
        entry.priority = static_cast<std::int64_t>(index % 7);
        entry.enabled = index % 10 != 0;
        entries.push_back(std::move(entry));
    }
    return entries;
}

void BM_DictionaryCorrection(benchmark::State& state) {
    const kelvo::DictionaryCorrectionEngine engine(
        std::make_shared<MemoryDictionary>(dictionary(static_cast<int>(state.range(0)))));
    const std::string text = kDictation;
    state.counters["characters"] = static_cast<double>(kelvo::unicode::characterCount(text));
    std::size_t used = 0;
    for (auto _ : state) {
        auto result = engine.apply(text, kelvo::DictionaryScope::all);
        used = result.usedEntryIDs.size();
        benchmark::DoNotOptimize(result);
    }
    state.counters["usedEntries"] = static_cast<double>(used);
}
BENCHMARK(BM_DictionaryCorrection)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

void BM_FillerRemoval(benchmark::State& state) {
    const kelvo::FillerRemovalEngine engine;
    std::string text;
    const auto targetCharacters = static_cast<std::size_t>(state.range(0));
    while (kelvo::unicode::characterCount(text) < targetCharacters) {
        text += kDictation;
    }
    text = std::string(kelvo::unicode::characterPrefix(text, targetCharacters));
    for (auto _ : state) {
        benchmark::DoNotOptimize(engine.removeFillers(text));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_FillerRemoval)->Arg(300)->Arg(30000)->Unit(benchmark::kMicrosecond);

// A text made only of fillers and interjections: what is left after the deletions is a long run
// of leading marks and interjections, which must go in one cut, not one erase at a time.
void BM_FillerRemovalOfFillersOnly(benchmark::State& state) {
    const kelvo::FillerRemovalEngine engine;
    const auto targetBytes = static_cast<std::size_t>(state.range(0)) * 1024 * 1024;
    std::string text;
    while (text.size() < targetBytes) {
        text += "あ、えーと、あっ、。";
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(engine.removeFillers(text));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_FillerRemovalOfFillersOnly)
    ->Arg(1)
    ->Arg(12)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

void BM_HistoryAppendWhenFull(benchmark::State& state) {
    const BenchFolder folder;
    kelvo::JSONHistoryStore store(folder.path() / "history.json");
    auto item = [](int number) {
        kelvo::HistoryItem history;
        history.id = kelvo::makeUuid();
        history.createdAt = kelvo::Date{700000000.0 + number};
        history.request.rawText = kDictation;
        history.result.rawTranscript = kDictation;
        history.result.correctedText = kDictation;
        history.result.processedText = kDictation;
        history.result.finalText = kDictation;
        history.result.usedDictionaryEntryIDs = {kelvo::makeUuid(), kelvo::makeUuid()};
        return history;
    };
    for (int number = 0; number < 500; ++number) {
        store.appendItem(item(number));
    }
    state.counters["fileBytes"] = static_cast<double>(fs::file_size(store.fileURL()));
    int number = 500;
    for (auto _ : state) {
        store.appendItem(item(number++));
    }
}
BENCHMARK(BM_HistoryAppendWhenFull)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LoadDictionary10000(benchmark::State& state) {
    const BenchFolder folder;
    kelvo::JSONDictionaryStore store(folder.path() / "dictionary.json");
    store.saveEntries(dictionary(10000));
    state.counters["fileBytes"] = static_cast<double>(fs::file_size(store.fileURL()));
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.loadEntries());
    }
}
BENCHMARK(BM_LoadDictionary10000)->Unit(benchmark::kMillisecond);

/// What a dictionary editor save costs before the new terms apply: load plus preparation.
void BM_EngineReload10000(benchmark::State& state) {
    const BenchFolder folder;
    auto store = std::make_shared<kelvo::JSONDictionaryStore>(folder.path() / "dictionary.json");
    store->saveEntries(dictionary(10000));
    kelvo::DictionaryCorrectionEngine engine(store);
    for (auto _ : state) {
        engine.reload();
    }
}
BENCHMARK(BM_EngineReload10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
