#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "KelvoVoiceMac/session/CorrectionLearner.h"
#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "KelvoVoiceMac/session/TextInsertionService.h"
#include "fakes/FakeAccessibilityClient.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeFieldEditWatcher.h"
#include "fakes/FakeInputMethodCommitter.h"
#include "fakes/FakeKeySynthesizer.h"
#include "fakes/FakePasteboard.h"
#include "fakes/FakePreferences.h"
#include "fakes/FakeStatusItemPresenter.h"
#include "fakes/FakeWorkspace.h"
#include "fakes/RecordingLog.h"
#include "fakes/TestEventLoop.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;
using ::testing::_;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TextRange = platform::AccessibilityClient::TextRange;

// The insertion service or the correction learner over it.
template <typename Inserter>
QCoro::Task<> runInsert(Inserter& inserter, std::string text, bool restore,
                        std::optional<bool>& result) {
    result = co_await inserter.insert(std::move(text), restore);
}

class TextInsertionServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ensureCoreApplication();
        accessibility.element->state = {"abc", std::nullopt, TextRange{3, 0}};
        accessibility.stateAfterSet = {"abc日本語", std::nullopt, TextRange{6, 0}};
        pasteboard.contents = "previous";
    }

    void TearDown() override { runFor(clock, 2s); }

    // Starts an insertion; the result appears in result once it completes.
    void insert(std::string text, bool restore = true) {
        runInsert(service, std::move(text), restore, result);
    }

    // The target fetches the paste this long after the chord.
    void targetFetchesAfter(platform::Clock::Duration delay) {
        keys.onPaste = [this, delay] {
            clock.schedule(delay, [this] { pasteboard.fetchByTarget(); });
        };
    }

    // Makes the element report success without changing, which forces the pasteboard path.
    void elementIgnoresSet() { accessibility.changeDelay.reset(); }

    FakeClock clock;
    FakeAccessibilityClient accessibility{clock};
    FakePasteboard pasteboard;
    FakeKeySynthesizer keys;
    FakeWorkspace workspace;
    RecordingLog trace;
    app::TextInsertionService service{{accessibility, pasteboard, keys, workspace, clock, trace}};
    std::optional<bool> result;
};

TEST_F(TextInsertionServiceTest, EmptyTextAndMissingTrustTouchNothing) {
    insert("");
    EXPECT_EQ(result, true);
    accessibility.trusted = false;
    insert("日本語");
    EXPECT_EQ(result, false);
    EXPECT_THAT(trace.lines(), ElementsAre("[TextInsertion] Empty text, skipping",
                                           "[TextInsertion] Accessibility permission required"));
    EXPECT_THAT(accessibility.calls, IsEmpty());
    EXPECT_THAT(pasteboard.operations, IsEmpty());
}

TEST_F(TextInsertionServiceTest, VerifiedAccessibilityChangeSucceedsAfter120Milliseconds) {
    insert("日本語");
    settle(clock);
    EXPECT_THAT(accessibility.calls, ElementsAre("focusedElement", "value", "selectedText",
                                                 "selectedTextRange", "setSelectedText 日本語"));
    runFor(clock, 119ms);
    EXPECT_FALSE(result.has_value());
    runFor(clock, 1ms);
    EXPECT_EQ(result, true);
    EXPECT_THAT(trace.lines(), ElementsAre("[TextInsertion] Frontmost app: gedit",
                                           "[TextInsertion] AX verification changed: value=true, "
                                           "selectedText=false, range=true",
                                           "[TextInsertion] AX direct insertion succeeded"));
    EXPECT_THAT(pasteboard.operations, IsEmpty());
}

// Absent versus present counts as a change, and so does the selection range alone; a change that
// comes only after the verification wait does not.
TEST_F(TextInsertionServiceTest, VerificationSeesValueSelectionAndRangeWithinTheWait) {
    targetFetchesAfter(1ms);
    accessibility.element->state = {std::nullopt, "選択", std::nullopt};
    accessibility.stateAfterSet = {std::nullopt, std::nullopt, TextRange{0, 0}};
    insert("x");
    runFor(clock, 120ms);
    EXPECT_EQ(result, true);
    EXPECT_EQ(trace.lines()[1],
              "[TextInsertion] AX verification changed: value=false, selectedText=true, "
              "range=true");

    accessibility.element->state = {"abc", std::nullopt, TextRange{3, 0}};
    accessibility.stateAfterSet = {"abc", std::nullopt, TextRange{4, 0}};
    insert("y");
    runFor(clock, 120ms);
    EXPECT_EQ(result, true);
    EXPECT_EQ(keys.pasteCount, 0);

    accessibility.element->state = {"abc", std::nullopt, TextRange{3, 0}};
    accessibility.stateAfterSet = {"abcz", std::nullopt, TextRange{4, 0}};
    accessibility.changeDelay = 130ms;
    insert("z");
    runFor(clock, 400ms);
    EXPECT_EQ(keys.pasteCount, 1);
}

// A target that reports success and changes nothing gets the words by paste. When the clipboard
// goes back and to what: after a fast fetch never earlier than 200 ms after the chord, after a
// slow fetch when it comes; never when nothing fetched the paste (the words stay where the user
// can still paste them) or another application copied meanwhile; an image-only clipboard (no plain
// string) is left empty; without restore the words stay. Until then the dictated text is on the
// clipboard, our own keys are being injected and the insertion is not over.
TEST_F(TextInsertionServiceTest, WhenAndWhatTheClipboardIsRestoredTo) {
    using namespace std::string_literals;
    elementIgnoresSet();
    const struct {
        const char* rule;
        std::optional<std::string> before;
        std::optional<std::chrono::milliseconds> fetchAfter;
        bool otherApplicationCopies, restore;
        std::chrono::milliseconds settlesAfterChord;
        bool result;
        std::optional<std::string> after;
        std::string line;
    } cases[] = {
        // clang-format off
        {"fast fetch", "previous", 5ms, false, true, 200ms, true, "previous",
         "[TextInsertion] Sent Cmd+V"},
        {"slow fetch", "previous", 600ms, false, true, 600ms, true, "previous",
         "[TextInsertion] Restored previous pasteboard string"},
        {"never fetched", "previous", {}, false, true, 1000ms, false, "日本語",
         "[TextInsertion] Paste was not fetched within 1000 ms; dictated text left on pasteboard"},
        {"another application copied", "previous", 5ms, true, true, 200ms, true, "copied meanwhile",
         "[TextInsertion] Pasteboard changed by another application, not restoring"},
        {"image only", {}, 1ms, false, true, 200ms, true, {},
         "[TextInsertion] Cleared pasteboard after insertion"},
        {"no restore", "previous", 1ms, false, false, 200ms, true, "日本語",
         "[TextInsertion] Pasteboard fallback completed"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.rule);
        pasteboard.contents = c.before;
        keys.onPaste = [this, &c] {
            if (c.fetchAfter) {
                clock.schedule(*c.fetchAfter, [this] { pasteboard.fetchByTarget(); });
            }
            if (c.otherApplicationCopies) {
                clock.schedule(
                    100ms, [this] { pasteboard.takeOverByOtherApplication("copied meanwhile"); });
            }
        };
        result.reset();
        insert("日本語", c.restore);
        runFor(clock, 120ms + c.settlesAfterChord - 1ms);
        EXPECT_FALSE(result.has_value());
        EXPECT_TRUE(service.isInjectingKeys());
        EXPECT_EQ(pasteboard.contents, c.otherApplicationCopies ? "copied meanwhile"s : "日本語"s);
        runFor(clock, 1ms);
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(pasteboard.contents, c.after);
        EXPECT_TRUE(trace.contains(c.line));
        EXPECT_FALSE(service.isInjectingKeys());
    }
}

TEST_F(TextInsertionServiceTest, PasteboardFailuresReturnFalse) {
    elementIgnoresSet();
    pasteboard.writeFails = true;
    insert("a");
    runFor(clock, 300ms);
    EXPECT_EQ(result, false);
    EXPECT_THAT(
        trace.lines(),
        ElementsAre("[TextInsertion] Frontmost app: gedit",
                    "[TextInsertion] AX set selected text returned success but no focused "
                    "element change was detected",
                    "[TextInsertion] AX direct insertion failed, falling back to pasteboard",
                    "[TextInsertion] Failed to write text to pasteboard"));
    EXPECT_EQ(keys.pasteCount, 0);

    // No chord: the previous text goes back at once.
    pasteboard.writeFails = false;
    pasteboard.contents = "previous";
    keys.fails = true;
    trace.clear();
    insert("b");
    runFor(clock, 120ms);
    EXPECT_EQ(result, false);
    EXPECT_EQ(pasteboard.contents, "previous");
    EXPECT_TRUE(trace.contains("[TextInsertion] Failed to create Cmd+V events"));
    EXPECT_FALSE(service.isInjectingKeys()) << "a chord never sent leaves no keys to ignore";
}

using Outcome = platform::InputMethodCommitter::Outcome;

// The input-method route: the first committer that delivers ends the insertion, before trust is
// even asked; any other answer goes on to the next and then to the accessibility path unchanged.
TEST_F(TextInsertionServiceTest, InputMethodsAreTriedInOrderBeforeAccessibilityWhenEnabled) {
    FakeInputMethodCommitter fcitx5{"fcitx5", {Outcome::noFocusedInputContext, ""}};
    FakeInputMethodCommitter ibus{"ibus", {Outcome::delivered, "InputContext_3"}};
    FakePreferences preferences;
    app::PreferenceKeys::registerDefaults(preferences);  // as the session controller does
    app::TextInsertionService withInputMethods{
        {accessibility, pasteboard, keys, workspace, clock, trace, {&fcitx5, &ibus}, &preferences}};
    accessibility.trusted = false;
    runInsert(withInputMethods, "日本語👍🏽", true, result);
    settle(clock);
    EXPECT_EQ(result, true);
    EXPECT_THAT(fcitx5.commits, ElementsAre("日本語👍🏽"));
    EXPECT_THAT(ibus.commits, ElementsAre("日本語👍🏽"));
    EXPECT_THAT(accessibility.calls, IsEmpty());
    EXPECT_THAT(trace.lines(),
                ElementsAre("[TextInsertion] Input method fcitx5: no focused input context",
                            "[TextInsertion] Input method insertion succeeded: ibus "
                            "(InputContext_3)"));

    trace.clear();
    accessibility.trusted = true;
    ibus.answer = {Outcome::unavailable, "ibus-daemon is not running"};
    runInsert(withInputMethods, "x", true, result);
    runFor(clock, 120ms);
    EXPECT_EQ(result, true);
    EXPECT_THAT(trace.lines(),
                ElementsAre("[TextInsertion] Input method fcitx5: no focused input context",
                            "[TextInsertion] Input method ibus unavailable: ibus-daemon is not "
                            "running",
                            _, _, "[TextInsertion] AX direct insertion succeeded"));

    // Switched off: not asked at all. (The insertion runs to its end before the service goes.)
    preferences.setBool("kvmac_inputMethodInsertionEnabled", false);
    targetFetchesAfter(1ms);
    runInsert(withInputMethods, "y", true, result);
    runFor(clock, 2s);
    EXPECT_EQ(fcitx5.commits.size(), 2u);
    EXPECT_EQ(ibus.commits.size(), 2u);
}

// The correction learner over this service: a word of the dictation typed over once the
// accessibility insertion is verified becomes a suggestion and ends the watch; a paste is never
// watched; a new recording ends a watch.
TEST_F(TextInsertionServiceTest, LearnerWatchesOnlyFieldsTheTextWentIntoUntilTheNextDictation) {
    FakePreferences preferences;
    FakeStatusItemPresenter statusItem;
    FakeFieldEditWatcher watcher;
    std::vector<CorrectionSuggestion> suggested;
    int firstUses = 0;
    app::CorrectionLearner learner{{service, statusItem, watcher, nullptr, preferences, clock,
                                    trace, [&](const auto& s) { suggested.push_back(s); },
                                    [&] { ++firstUses; }}};
    accessibility.element->state = {"", std::nullopt, TextRange{0, 0}};
    accessibility.stateAfterSet = {"send the report", std::nullopt, TextRange{15, 0}};
    watcher.baseline = platform::FieldEditWatcher::Baseline{"send the report", 0, 0, 15};

    runInsert(learner, "send the report", true, result);
    runFor(clock, 200ms);
    ASSERT_TRUE(learner.isWatching());
    EXPECT_EQ(watcher.watched, "send the report");
    watcher.handlers.deleted(0, 4);
    watcher.handlers.inserted(0, "mail");
    runFor(clock, 2s);
    ASSERT_EQ(suggested.size(), 1u);
    EXPECT_EQ(suggested[0].misrecognition + "→" + suggested[0].canonical, "send→mail");
    EXPECT_FALSE(learner.isWatching());

    elementIgnoresSet();
    targetFetchesAfter(1ms);
    runInsert(learner, "send the report", true, result);
    runFor(clock, 2s);
    EXPECT_EQ(result, true) << "pasted";
    EXPECT_FALSE(learner.isWatching());

    accessibility.changeDelay = 0ms;
    accessibility.element->state = {"", std::nullopt, TextRange{0, 0}};
    runInsert(learner, "send the report", true, result);
    runFor(clock, 200ms);
    ASSERT_TRUE(learner.isWatching());
    learner.refresh(app::RecordingState::recording);
    EXPECT_FALSE(learner.isWatching());
    EXPECT_EQ(statusItem.refreshes.back(), app::RecordingState::recording);
    EXPECT_EQ(firstUses, 1);
}

}  // namespace
}  // namespace kelvo::test
