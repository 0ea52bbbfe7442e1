// Vault listing and saving at the size of a large notes vault: 10,000 notes in 500 folders.
// The vault is built once in a temporary folder and removed at exit. Listing stats every item
// and sorts with the collator; saving goes through the coordinated atomic write (fsync included),
// into a folder that already holds 10,000 notes.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "bench/BenchFolder.h"
#include "core/services/LocalFolderSaveAdapter.h"
#include "core/services/VaultBrowser.h"

namespace {

namespace fs = std::filesystem;

constexpr int kFolderCount = 500;
constexpr int kNotesPerFolder = 20;
constexpr int kFlatNoteCount = 10000;

using kelvo::bench::BenchFolder;

void writeNote(const fs::path& file, int number) {
    std::ofstream(file) << "---\ntitle: \"note " << number << "\"\n---\n\n本文 [[note "
                        << number + 1 << "]]\n";
}

const fs::path& nestedVault() {
    static BenchFolder folder;
    static const bool built = [] {
        for (int f = 0; f < kFolderCount; ++f) {
            const fs::path sub = folder.path() / ("フォルダ " + std::to_string(f));
            fs::create_directory(sub);
            for (int n = 0; n < kNotesPerFolder; ++n) {
                writeNote(sub / ("note " + std::to_string(n) + ".md"), f * kNotesPerFolder + n);
            }
        }
        return true;
    }();
    (void)built;
    return folder.path();
}

const fs::path& flatFolder() {
    static BenchFolder folder;
    static const bool built = [] {
        for (int n = 0; n < kFlatNoteCount; ++n) {
            writeNote(folder.path() / ("2025-03-14-0905-note-" + std::to_string(n) + ".md"), n);
        }
        return true;
    }();
    (void)built;
    return folder.path();
}

kelvo::VaultBrowser browserOver(const fs::path& root) {
    return kelvo::VaultBrowser([root] {
        return std::optional<kelvo::ScopedURL>(kelvo::ScopedURL{root, [] {}});
    });
}

void BM_ListVault(benchmark::State& state) {
    const kelvo::VaultBrowser browser = browserOver(nestedVault());
    std::size_t entryCount = 0;
    for (auto _ : state) {
        const auto entries = browser.list();
        entryCount = entries.size();
        benchmark::DoNotOptimize(entries.data());
    }
    state.counters["entries"] = static_cast<double>(entryCount);
}
BENCHMARK(BM_ListVault)->Unit(benchmark::kMillisecond)->MinTime(2.0);

void BM_SearchVault(benchmark::State& state) {
    const kelvo::VaultBrowser browser = browserOver(nestedVault());
    std::size_t matchCount = 0;
    for (auto _ : state) {
        matchCount = browser.search("NOTE 1").size();
    }
    state.counters["matches"] = static_cast<double>(matchCount);
}
BENCHMARK(BM_SearchVault)->Unit(benchmark::kMillisecond)->MinTime(2.0);

/// Link extraction from a note of `range(0)` "[[" openings that only a "]" at its end closes
/// (a run of unclosed links); the reported complexity says how the time grows with the note.
void BM_WikiLinksOfUnclosedOpenings(benchmark::State& state) {
    std::string note;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        note += "[[";
    }
    note += "]x";
    for (auto _ : state) {
        benchmark::DoNotOptimize(kelvo::VaultBrowser::wikiLinks(note));
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_WikiLinksOfUnclosedOpenings)
    ->RangeMultiplier(4)
    ->Range(1 << 12, 1 << 16)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

kelvo::MarkdownDocument benchDocument(const std::string& title) {
    kelvo::MarkdownDocument document;
    document.title = title;
    document.body = std::string(2000, 'x');
    document.frontmatter["title"] = kelvo::FrontmatterValue::string(title);
    document.frontmatter["source"] = kelvo::FrontmatterValue::string("KelvoVoice");
    document.tags = {"kelvo-voice"};
    document.createdAt = kelvo::Date::now();
    return document;
}

/// One save into a folder of 10,000 notes; `policy` decides whether the note replaces itself
/// (overwrite) or the name clash is resolved with a timestamp (appendTimestamp).
void BM_SaveIntoLargeFolder(benchmark::State& state) {
    const auto policy = static_cast<kelvo::OverwritePolicy>(state.range(0));
    const fs::path folder = flatFolder();
    kelvo::LocalFolderSaveAdapter adapter([] { return std::nullopt; }, folder);
    kelvo::SaveRequest request;
    request.overwritePolicy = policy;
    const kelvo::MarkdownDocument document = benchDocument("bench note");
    for (auto _ : state) {
        const kelvo::SaveResult result = adapter.save(document, request);
        if (!result.success) {
            state.SkipWithError(result.error.value_or("save failed").c_str());
            break;
        }
    }
}
BENCHMARK(BM_SaveIntoLargeFolder)
    ->Arg(static_cast<int>(kelvo::OverwritePolicy::overwrite))
    ->Arg(static_cast<int>(kelvo::OverwritePolicy::appendTimestamp))
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
