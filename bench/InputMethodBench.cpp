// Insertion time by route on the same targets: through the input method (fcitx5 with our addon,
// then ibus-daemon), through AT-SPI and through the clipboard and paste chord. Each iteration
// inserts "日本語👍🏽" and is timed from the call until the target shows the text (its state
// file, or the terminal's output file). The routes as the application runs them (the insertion
// service) are timed until the service returns: the accessibility path waits 120 ms to verify,
// the paste path at least 200 ms before restoring the clipboard; their counter visible_ms is the
// mean time until the target shows the text.
//
// The Wayland paste (data-control clipboard, virtual-keyboard Ctrl+V) is timed the same way into
// a GTK entry running natively on headless Sway, with Fcitx5's virtual keyboard as the seat's
// keyboard and the entry on GTK's simple input context; Sway refuses root.
//
// Run inside the headless session, with the build's Fcitx5 addon:
//   scripts/as-test-user scripts/headless-session run -- build/bench/input_method_bench
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QCoroTask>
#include <QGuiApplication>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "../tests/e2e/ime/ImeTestSession.h"
#include "KelvoVoiceMac/session/TextInsertionService.h"
#include "platform/QtClock.h"
#include "platform/TraceOutput.h"
#include "platform/linux/AtspiAccessibilityClient.h"
#include "platform/linux/Fcitx5InputMethodCommitter.h"
#include "platform/linux/IBusInputMethodCommitter.h"
#include "platform/linux/QClipboardPasteboard.h"
#include "platform/linux/WaylandDataControlPasteboard.h"
#include "platform/linux/WaylandVirtualKeyboardSynthesizer.h"
#include "platform/linux/X11Workspace.h"
#include "platform/linux/XTestKeySynthesizer.h"

namespace {

using namespace kelvo;
using Clock = std::chrono::steady_clock;

const std::string chunk = "日本語👍🏽";

class NullTrace final : public platform::TraceOutput {
  public:
    void write(std::string_view) override {}
};

// Trusted, never a focused element: the insertion service goes straight to the paste.
class NoFocusAccessibility final : public platform::AccessibilityClient {
  public:
    bool isTrusted() const override { return true; }
    QCoro::Task<FocusedElement> focusedElement() override {
        co_return FocusedElement{{}, Outcome::noFocusedElement};
    }
    QCoro::Task<std::optional<std::string>> value(
        std::shared_ptr<platform::AccessibleElement>) override {
        co_return std::nullopt;
    }
    QCoro::Task<std::optional<std::string>> selectedText(
        std::shared_ptr<platform::AccessibleElement>) override {
        co_return std::nullopt;
    }
    QCoro::Task<std::optional<TextRange>> selectedTextRange(
        std::shared_ptr<platform::AccessibleElement>) override {
        co_return std::nullopt;
    }
    QCoro::Task<Outcome> setSelectedText(std::shared_ptr<platform::AccessibleElement>,
                                         std::string) override {
        co_return Outcome::noFocusedElement;
    }
};

// The real desktop backends, shared by every benchmark.
struct Backends {
    platform::AtspiAccessibilityClient atspi;
    NoFocusAccessibility noFocus;
    platform::QClipboardPasteboard pasteboard;
    platform::XTestKeySynthesizer keys;
    platform::X11Workspace workspace;
    platform::QtClock clock;
    NullTrace trace;

    // Made once the compositor runs.
    std::unique_ptr<platform::WaylandDataControlPasteboard> waylandPasteboard;
    std::unique_ptr<platform::WaylandVirtualKeyboardSynthesizer> waylandKeys;

    std::unique_ptr<app::TextInsertionService> service(
        platform::AccessibilityClient& accessibility,
        std::vector<platform::InputMethodCommitter*> committers = {}, bool wayland = false) {
        return std::make_unique<app::TextInsertionService>(app::TextInsertionService::Dependencies{
            .accessibility = accessibility,
            .pasteboard =
                wayland ? static_cast<platform::Pasteboard&>(*waylandPasteboard) : pasteboard,
            .keySynthesizer = wayland ? static_cast<platform::KeySynthesizer&>(*waylandKeys) : keys,
            .workspace = workspace,
            .clock = clock,
            .traceOutput = trace,
            .inputMethods = std::move(committers)});
    }
};
Backends* backends = nullptr;

// Until the client shows expected (Qt events keep turning: the clipboard is served from here).
bool waitForText(const test::Client& client, const std::string& expected) {
    const auto giveUp = Clock::now() + std::chrono::seconds(5);
    while (client.text() != expected) {
        if (Clock::now() > giveUp) {
            return false;
        }
        QCoreApplication::processEvents();
    }
    return true;
}

// Whether the route can start: the framework reports the client's input context focused, or,
// without one, AT-SPI sees the client's focused field (it follows the focus asynchronously).
bool ready(const test::Client& client, platform::InputMethodCommitter* focusThrough) {
    if (client.title.empty()) {
        return false;
    }
    if (focusThrough) {
        return test::focusUntilReady(client, *focusThrough);
    }
    const auto giveUp = Clock::now() + std::chrono::seconds(20);
    while (!QCoro::waitFor(backends->atspi.focusedElement()).element) {
        if (Clock::now() > giveUp) {
            return false;
        }
        QCoreApplication::processEvents();
    }
    return true;
}

// Times insert(chunk) from the call until the client shows the text.
void timeUntilVisible(benchmark::State& state, const test::Client& client,
                      const std::function<void()>& insert) {
    for (auto _ : state) {
        const std::string expected = client.text() + chunk;
        const auto start = Clock::now();
        insert();
        if (!waitForText(client, expected)) {
            state.SkipWithError("the text did not arrive");
            return;
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
}

platform::InputMethodCommitter* use(const std::string& name);

// Times insert() until the client shows the text, in a client started with the framework named.
void registerVisible(const std::string& name, std::function<test::Client()> start,
                     std::string frameworkName, std::function<void(const test::Client&)> insert) {
    benchmark::RegisterBenchmark(name.c_str(),
                                 [=](benchmark::State& state) {
                                     platform::InputMethodCommitter* focusThrough =
                                         use(frameworkName);
                                     test::Client client = start();
                                     if (!ready(client, focusThrough)) {
                                         state.SkipWithError("target not ready");
                                         return;
                                     }
                                     timeUntilVisible(state, client, [&] { insert(client); });
                                 })
        ->UseManualTime()
        ->Iterations(20)
        ->Unit(benchmark::kMillisecond);
}

// The insertion service's own time: from insert() until it returns.
void registerService(const std::string& name, std::function<test::Client()> start,
                     std::string frameworkName,
                     std::function<std::unique_ptr<app::TextInsertionService>()> make) {
    benchmark::RegisterBenchmark(
        name.c_str(),
        [=](benchmark::State& state) {
            platform::InputMethodCommitter* focusThrough = use(frameworkName);
            test::Client client = start();
            if (!ready(client, focusThrough)) {
                state.SkipWithError("target not ready");
                return;
            }
            auto service = make();
            std::chrono::duration<double, std::milli> untilVisible{};
            for (auto _ : state) {
                const std::string expected = client.text() + chunk;
                const auto start = Clock::now();
                const bool inserted = QCoro::waitFor(service->insert(chunk, true));
                const auto end = Clock::now();
                if (!inserted || !waitForText(client, expected)) {
                    state.SkipWithError("the text did not arrive");
                    return;
                }
                untilVisible += Clock::now() - start;
                state.SetIterationTime(std::chrono::duration<double>(end - start).count());
            }
            // End to end: from insert() until the target shows the text.
            state.counters["visible_ms"] =
                benchmark::Counter(untilVisible.count(), benchmark::Counter::kAvgIterations);
        })
        ->UseManualTime()
        ->Iterations(20)
        ->Unit(benchmark::kMillisecond);
}

// The framework a benchmark needs, started on first use; starting one ends the other. The
// clients a benchmark starts are switched to it (or to no input method at all).
struct Framework {
    std::unique_ptr<test::InputMethodDaemon> daemon;
    std::unique_ptr<platform::InputMethodCommitter> committer;
    std::string name;
};
Framework* framework = nullptr;

platform::InputMethodCommitter* use(const std::string& name) {
    if (framework->name == name) {
        return framework->committer.get();
    }
    framework->committer.reset();
    framework->daemon.reset();
    framework->name = name;
    if (name == "fcitx5" || name == "fcitx5-wayland") {
#ifdef KELVO_FCITX5_ADDON_LIBRARY
        framework->daemon = test::InputMethodDaemon::startFcitx5(KELVO_FCITX5_ADDON_LIBRARY);
        framework->committer = std::make_unique<platform::Fcitx5InputMethodCommitter>();
#endif
    } else if (name == "ibus") {
        framework->daemon = test::InputMethodDaemon::startIBus();
        framework->committer = std::make_unique<platform::IBusInputMethodCommitter>();
    } else {
        test::useInputMethod("gtk-im-context-simple", "none");
    }
    return framework->committer.get();
}

void registerInputMethod(const std::string& name, const std::string& xim) {
    auto commit = [name](const test::Client&) { QCoro::waitFor(use(name)->commit(chunk)); };
    registerVisible(
        name + "/gtk-entry", [] { return test::startTarget("gtk-entry"); }, name, commit);
    registerVisible(
        name + "/qt-lineedit", [] { return test::startTarget("qt-lineedit"); }, name, commit);
    registerVisible(
        name + "/xterm", [xim] { return test::startTerminal(xim); }, name, commit);
    registerService(
        name + "/service/gtk-entry", [] { return test::startTarget("gtk-entry"); }, name,
        [name] { return backends->service(backends->atspi, {use(name)}); });
}

void registerAccessibilityAndPaste() {
    for (const char* kind : {"gtk-entry", "qt-lineedit"}) {
        std::string target = kind;
        auto start = [target] { return test::startTarget(target); };
        registerVisible("atspi/" + target, start, "none", [](const test::Client&) {
            auto focused = QCoro::waitFor(backends->atspi.focusedElement());
            if (focused.element) {
                QCoro::waitFor(backends->atspi.setSelectedText(focused.element, chunk));
            }
        });
        registerService("atspi/service/" + target, start, "none",
                        [] { return backends->service(backends->atspi); });
        registerVisible("paste/" + target, start, "none", [](const test::Client&) {
            backends->pasteboard.writeString(chunk);
            backends->keys.sendPaste();
        });
        registerService("paste/service/" + target, start, "none",
                        [] { return backends->service(backends->noFocus); });
    }
}

void registerWaylandPaste() {
    auto start = [] {
        // The compositor, started by the first Wayland benchmark, lives until the session ends.
        if (!backends->waylandPasteboard) {
            if (!test::startCompositor()) {
                return test::Client{};
            }
            backends->waylandPasteboard =
                std::make_unique<platform::WaylandDataControlPasteboard>();
            backends->waylandKeys = std::make_unique<platform::WaylandVirtualKeyboardSynthesizer>();
        }
        // Fcitx5 on the compositor: its virtual keyboard is the headless seat's keyboard.
        use("fcitx5-wayland");
        return test::startTarget("wayland-gtk-entry", {"--no-input-method"});
    };
    registerVisible("wayland-paste/gtk-entry", start, "none", [](const test::Client&) {
        backends->waylandPasteboard->writeString(chunk);
        backends->waylandKeys->sendPaste();
    });
    registerService("wayland-paste/service/gtk-entry", start, "none",
                    [] { return backends->service(backends->noFocus, {}, true); });
}

}  // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "xcb");
    QGuiApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    Backends shared;
    backends = &shared;

    Framework none;
    framework = &none;
    registerAccessibilityAndPaste();
#ifdef KELVO_FCITX5_ADDON_LIBRARY
    registerInputMethod("fcitx5", "fcitx");
#endif
    registerInputMethod("ibus", "ibus");
#ifdef KELVO_FCITX5_ADDON_LIBRARY
    registerWaylandPaste();
#endif
    benchmark::RunSpecifiedBenchmarks();
    none.committer.reset();
    none.daemon.reset();
    shared.waylandKeys.reset();
    shared.waylandPasteboard.reset();
    benchmark::Shutdown();
    return 0;
}
