// AT-SPI insertion time as the insertion service sees it, without its 120 ms verification wait:
// find the focused object, read value, selected text and range, replace the selection, read the
// three again. Against a real GTK 3 entry, GTK 3 text view and Qt 6 line edit on the session's
// accessibility bus, each a separate process answering over D-Bus. Also the focused-object lookup
// on its own. Needs a headless session and starts its targets itself:
//
//   scripts/headless-session run -- build/bench/atspi_bench
//
// Wall-clock time (the work happens on the client's libatspi thread and in the target).

#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "InsertionTarget.h"
#include "platform/linux/AtspiAccessibilityClient.h"

namespace {

using kelvo::platform::AccessibilityClient;
using kelvo::platform::AtspiAccessibilityClient;
using kelvo::test::InsertionTarget;

AtspiAccessibilityClient* client = nullptr;
std::unique_ptr<InsertionTarget> currentTarget;

// One target at a time, so the one being measured has the focus.
InsertionTarget& focusTarget(const std::string& kind) {
    if (!currentTarget || currentTarget->kind() != kind) {
        currentTarget.reset();
        currentTarget =
            std::make_unique<InsertionTarget>(kind, std::vector<std::string>{"--text", "ベンチ"});
    }
    return *currentTarget;
}

// Until the bus shows the new target focused with an editable text object.
bool waitUntilFocused() {
    for (int attempt = 0; attempt < 400; ++attempt) {
        auto focused = QCoro::waitFor(client->focusedElement());
        if (focused.element && QCoro::waitFor(client->value(focused.element))) {
            return true;
        }
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

QCoro::Task<bool> insertOnce(std::string text) {
    auto focused = co_await client->focusedElement();
    if (!focused.element) {
        co_return false;
    }
    auto element = focused.element;
    auto value = co_await client->value(element);
    auto selected = co_await client->selectedText(element);
    auto range = co_await client->selectedTextRange(element);
    const AccessibilityClient::Outcome outcome =
        co_await client->setSelectedText(element, std::move(text));
    auto valueAfter = co_await client->value(element);
    auto selectedAfter = co_await client->selectedText(element);
    auto rangeAfter = co_await client->selectedTextRange(element);
    co_return outcome == AccessibilityClient::Outcome::done&& valueAfter != value &&
        (selected || selectedAfter || range || rangeAfter);
}

void BM_AtspiInsertion(benchmark::State& state, const char* kind) {
    focusTarget(kind);
    if (!waitUntilFocused()) {
        state.SkipWithError("target never showed up focused on the accessibility bus");
        return;
    }
    for (auto _ : state) {
        if (!QCoro::waitFor(insertOnce("日本語😀"))) {
            state.SkipWithError("insertion failed or changed nothing");
            return;
        }
    }
}

void BM_AtspiFocusedElement(benchmark::State& state, const char* kind) {
    focusTarget(kind);
    if (!waitUntilFocused()) {
        state.SkipWithError("target never showed up focused on the accessibility bus");
        return;
    }
    for (auto _ : state) {
        auto focused = QCoro::waitFor(client->focusedElement());
        benchmark::DoNotOptimize(focused.element);
    }
}

BENCHMARK_CAPTURE(BM_AtspiInsertion, gtk_entry, "gtk-entry")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_AtspiInsertion, gtk_view, "gtk-view")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_AtspiInsertion, qt_lineedit, "qt-lineedit")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_AtspiFocusedElement, gtk_entry, "gtk-entry")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_AtspiFocusedElement, qt_lineedit, "qt-lineedit")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    if (std::getenv("KELVO_SESSION_DIR") == nullptr || std::getenv("DISPLAY") == nullptr) {
        std::fprintf(stderr,
                     "atspi_bench needs a headless session: scripts/headless-session run -- %s\n",
                     argv[0]);
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    AtspiAccessibilityClient atspiClient;
    if (!atspiClient.isTrusted()) {
        std::fprintf(stderr,
                     "atspi_bench: the accessibility bus is not reachable or not enabled\n");
        return 1;
    }
    client = &atspiClient;
    try {
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "atspi_bench: %s\n", error.what());
        return 1;
    }
    currentTarget.reset();
    benchmark::Shutdown();
    return 0;
}
