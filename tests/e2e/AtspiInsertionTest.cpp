// End-to-end tests of AT-SPI insertion: the real AtspiAccessibilityClient and the real
// TextInsertionService (real clock, so the 120 ms verification wait is real) against GTK 3 and
// Qt 6 target applications on the session's accessibility bus. What landed is read from each
// target's own state file, not from the accessibility interface. Clipboard and paste chord are
// fakes here: only whether the fallback ran is asked.
#include <gtest/gtest.h>

#include <QCoroTask>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "InsertionTarget.h"
#include "KelvoVoiceMac/session/TextInsertionService.h"
#include "fakes/FakeKeySynthesizer.h"
#include "fakes/FakePasteboard.h"
#include "fakes/FakeWorkspace.h"
#include "fakes/RecordingLog.h"
#include "platform/QtClock.h"
#include "platform/linux/AtspiAccessibilityClient.h"
#include "platform/linux/AtspiAccessibleElement.h"
#include "platform/linux/IBusInputMethodCommitter.h"
#include "tests/support/WaitUntil.h"

#include <ibus.h>

namespace kelvo {
namespace {

using platform::AtspiAccessibilityClient;
using test::InsertionTarget;
using Outcome = platform::AccessibilityClient::Outcome;

class AtspiInsertionTest : public ::testing::Test {
  protected:
    // The focused element once the accessibility bus shows the new target focused with its
    // initial text (a password field: once it shows a password field): a target reports its own
    // focus before every toolkit has told the bus, and the previous target may still be ending.
    platform::AccessibilityClient::FocusedElement focusedElement(
        const std::optional<std::string>& initialText) {
        platform::AccessibilityClient::FocusedElement focused;
        test::waitUntil(
            [&] {
                focused = QCoro::waitFor(client.focusedElement());
                return focused.element &&
                       (initialText
                            ? !focused.isSecureTextField &&
                                  QCoro::waitFor(client.value(focused.element)) == initialText
                            : focused.isSecureTextField);
            },
            std::chrono::seconds(20), std::chrono::milliseconds(50));
        return focused;
    }

    bool insert(const std::string& text) {
        trace.clear();
        return QCoro::waitFor(service.insert(text, true));
    }

    std::string traceText() const { return ::testing::PrintToString(trace.lines()); }

    AtspiAccessibilityClient client;
    platform::QtClock clock;
    test::FakePasteboard pasteboard;
    test::FakeKeySynthesizer keySynthesizer;
    test::FakeWorkspace workspace;
    test::RecordingLog trace;
    app::TextInsertionService service{
        {client, pasteboard, keySynthesizer, workspace, clock, trace}};
};

// Replacing a selection, and inserting at a caret that sits after an emoji, with characters
// of one to four bytes and one or two UTF-16 units: an offset or a length in the wrong unit
// lands the text in the wrong place, truncates it or appends garbage.
TEST_F(AtspiInsertionTest, InsertsJapaneseAndEmojiIntoGtkAndQtTextFields) {
    ASSERT_TRUE(client.isTrusted());
    struct Case {
        const char* kind;
        const char* caretAfterEmoji;  // in the toolkit's units
    };
    for (const Case& c :
         {Case{"gtk-entry", "2:2"}, Case{"gtk-view", "2:2"}, Case{"qt-lineedit", "3:3"}}) {
        SCOPED_TRACE(c.kind);
        {
            InsertionTarget target(c.kind, {"--text", "前後ab", "--select", "1:2"});
            ASSERT_TRUE(focusedElement("前後ab").element);
            EXPECT_TRUE(insert("日本語😀")) << traceText();
            EXPECT_TRUE(trace.contains("[TextInsertion] AX direct insertion succeeded"))
                << traceText();
            EXPECT_EQ(target.waitForText([](const std::string& t) { return t == "前日本語😀ab"; }),
                      "前日本語😀ab");
        }
        {
            InsertionTarget target(c.kind, {"--text", "a😀b", "--select", c.caretAfterEmoji});
            ASSERT_TRUE(focusedElement("a😀b").element);
            EXPECT_TRUE(insert("日本🎌")) << traceText();
            EXPECT_EQ(target.waitForText([](const std::string& t) { return t == "a😀日本🎌b"; }),
                      "a😀日本🎌b");
        }
        EXPECT_EQ(keySynthesizer.pasteCount, 0);
    }
}

// A field that is not editable is refused before anything is sent (a read-only Qt line edit would
// otherwise take the text) and goes to the clipboard fallback; the target keeps its text. (A
// target that reports success and changes nothing is TextInsertionServiceTest's.)
TEST_F(AtspiInsertionTest, FallsBackWhenTheTargetCannotTakeTheText) {
    keySynthesizer.onPaste = [this] { pasteboard.fetchByTarget(); };
    for (const char* kind : {"gtk-readonly", "qt-readonly"}) {
        SCOPED_TRACE(kind);
        InsertionTarget readOnly(kind, {"--text", "読み取り専用"});
        ASSERT_TRUE(focusedElement("読み取り専用").element);
        const int pastesBefore = keySynthesizer.pasteCount;
        insert("こんにちは");
        EXPECT_TRUE(
            trace.contains("[TextInsertion] Failed to set selected text with AX: notEditable"))
            << traceText();
        EXPECT_EQ(keySynthesizer.pasteCount, pastesBefore + 1);
        EXPECT_EQ(readOnly.text(), "読み取り専用");
    }
}

// A password field is marked, never read and never written; the insertion service then puts
// nothing there, not even through the clipboard.
TEST_F(AtspiInsertionTest, PasswordFieldIsNeitherReadNorWritten) {
    for (const char* kind : {"gtk-password", "qt-password"}) {
        SCOPED_TRACE(kind);
        InsertionTarget password(kind, {"--text", "hunter2", "--select", "0:3"});
        auto focused = focusedElement(std::nullopt);
        ASSERT_TRUE(focused.element);
        EXPECT_TRUE(focused.isSecureTextField);
        EXPECT_EQ(QCoro::waitFor(client.value(focused.element)), std::nullopt);
        EXPECT_EQ(QCoro::waitFor(client.selectedText(focused.element)), std::nullopt);
        EXPECT_EQ(QCoro::waitFor(client.selectedTextRange(focused.element)), std::nullopt);
        EXPECT_EQ(QCoro::waitFor(client.setSelectedText(focused.element, "漏洩")),
                  Outcome::passwordField);

        EXPECT_FALSE(insert("秘密"));
        EXPECT_TRUE(
            trace.contains("[TextInsertion] Focused element is a password field, not inserting"))
            << traceText();
        EXPECT_EQ(keySynthesizer.pasteCount, 0);
        EXPECT_TRUE(pasteboard.operations.empty());
        EXPECT_EQ(password.text(), "hunter2");
    }
}

// What the buses report decides the rest without a round trip, so it is pinned here as data: the
// toolkit name sets the unit of inserted lengths (GTK 4 says "GTK"; an unknown toolkit falls back
// to the paste), and IBus's input purpose marks secrets as the password role does for AT-SPI.
TEST(FieldKindTest, ToolkitNamesSetTheLengthUnitAndIBusPurposesMarkSecrets) {
    using Unit = platform::AtspiAccessibleElement::InsertionLengthUnit;
    for (const auto& [toolkit, unit] :
         std::vector<std::pair<const char*, Unit>>{{"gtk", Unit::utf8Bytes},
                                                   {"GTK", Unit::utf8Bytes},
                                                   {"Qt", Unit::utf16Units},
                                                   {"Gecko", Unit::unsupported}}) {
        EXPECT_EQ(platform::AtspiAccessibleElement::lengthUnitOfToolkit(toolkit), unit) << toolkit;
    }
    for (const auto& [purpose, secret] :
         std::vector<std::pair<unsigned, bool>>{{IBUS_INPUT_PURPOSE_PASSWORD, true},
                                                {IBUS_INPUT_PURPOSE_PIN, true},
                                                {IBUS_INPUT_PURPOSE_FREE_FORM, false},
                                                {IBUS_INPUT_PURPOSE_DIGITS, false},
                                                {IBUS_INPUT_PURPOSE_EMAIL, false}}) {
        EXPECT_EQ(platform::IBusInputMethodCommitter::isForSecrets(purpose), secret) << purpose;
    }
}

}  // namespace
}  // namespace kelvo
