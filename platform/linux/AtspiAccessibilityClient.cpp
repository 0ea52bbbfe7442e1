// libatspi first: its GLib headers have a member named `signals`, which Qt's keyword would break.
#include <atspi/atspi.h>
#include <gio/gio.h>

#include "platform/linux/AtspiAccessibilityClient.h"

#include <QCoroFuture>
#include <QFuture>
#include <QPromise>

#include <utility>

#include "platform/linux/AtspiAccessibleElement.h"
#include "platform/linux/AtspiMainLoopThread.h"
#include "platform/linux/GObjectRef.h"
#include "platform/linux/RunOnAtspiThread.h"

namespace kelvo::platform {

namespace {

using Outcome = AccessibilityClient::Outcome;
using LengthUnit = AtspiAccessibleElement::InsertionLengthUnit;

// Bounds the focus search in applications with enormous trees that do not mark their big
// containers as managing their descendants.
constexpr int kMaximumSearchDepth = 40;
constexpr int kMaximumVisitedObjects = 5000;
// isTrusted() runs on the caller's thread; the bus launcher answers in about a millisecond.
constexpr int kTrustCheckTimeoutMs = 1000;

class GErrorHolder {
  public:
    GErrorHolder() = default;
    GErrorHolder(const GErrorHolder&) = delete;
    GErrorHolder& operator=(const GErrorHolder&) = delete;
    ~GErrorHolder() {
        if (error_ != nullptr) {
            g_error_free(error_);
        }
    }
    GError** out() noexcept { return &error_; }
    bool isSet() const noexcept { return error_ != nullptr; }

  private:
    GError* error_ = nullptr;
};

std::optional<std::string> takeString(gchar* text) {
    if (text == nullptr) {
        return std::nullopt;
    }
    std::string result(text);
    g_free(text);
    return result;
}

bool hasState(AtspiAccessible* accessible, AtspiStateType state) {
    GObjectRef<AtspiStateSet> states(atspi_accessible_get_state_set(accessible));
    return states && atspi_state_set_contains(states.get(), state);
}

// --- focus search (libatspi thread) ---------------------------------------------------------

class FocusSearch {
  public:
    GObjectRef<AtspiAccessible> run() {
        GObjectRef<AtspiAccessible> desktop(atspi_get_desktop(0));
        if (!desktop) {
            return {};
        }
        GErrorHolder error;
        const int applicationCount = atspi_accessible_get_child_count(desktop.get(), error.out());
        for (int a = 0; a < applicationCount; ++a) {
            GErrorHolder childError;
            GObjectRef<AtspiAccessible> application(
                atspi_accessible_get_child_at_index(desktop.get(), a, childError.out()));
            if (!application) {
                continue;
            }
            if (auto found = searchApplication(application.get())) {
                return found;
            }
        }
        return {};
    }

  private:
    GObjectRef<AtspiAccessible> searchApplication(AtspiAccessible* application) {
        GErrorHolder error;
        const int windowCount = atspi_accessible_get_child_count(application, error.out());
        // An application that does not answer is skipped whole, so a frozen one costs one
        // timeout, not one per window.
        if (error.isSet()) {
            return {};
        }
        for (int w = 0; w < windowCount; ++w) {
            GErrorHolder windowError;
            GObjectRef<AtspiAccessible> window(
                atspi_accessible_get_child_at_index(application, w, windowError.out()));
            if (windowError.isSet()) {
                return {};
            }
            if (!window || !hasState(window.get(), ATSPI_STATE_ACTIVE)) {
                continue;
            }
            if (auto found = searchBelow(window.get(), 1)) {
                return found;
            }
        }
        return {};
    }

    GObjectRef<AtspiAccessible> searchBelow(AtspiAccessible* object, int depth) {
        if (depth > kMaximumSearchDepth || ++visited_ > kMaximumVisitedObjects) {
            return {};
        }
        GObjectRef<AtspiStateSet> states(atspi_accessible_get_state_set(object));
        if (!states) {
            return {};
        }
        if (atspi_state_set_contains(states.get(), ATSPI_STATE_FOCUSED)) {
            return GObjectRef<AtspiAccessible>::share(object);
        }
        // Windows are searched even when a toolkit leaves SHOWING off on them.
        if (depth > 1 && !atspi_state_set_contains(states.get(), ATSPI_STATE_SHOWING)) {
            return {};
        }
        if (atspi_state_set_contains(states.get(), ATSPI_STATE_MANAGES_DESCENDANTS)) {
            return {};
        }
        GErrorHolder error;
        const int childCount = atspi_accessible_get_child_count(object, error.out());
        for (int c = 0; c < childCount; ++c) {
            GErrorHolder childError;
            GObjectRef<AtspiAccessible> child(
                atspi_accessible_get_child_at_index(object, c, childError.out()));
            if (!child) {
                continue;
            }
            if (auto found = searchBelow(child.get(), depth + 1)) {
                return found;
            }
        }
        return {};
    }

    int visited_ = 0;
};

LengthUnit lengthUnitOf(AtspiAccessible* accessible) {
    GErrorHolder error;
    GObjectRef<AtspiAccessible> application(
        atspi_accessible_get_application(accessible, error.out()));
    if (!application) {
        return LengthUnit::unsupported;
    }
    GErrorHolder nameError;
    const std::optional<std::string> toolkit =
        takeString(atspi_accessible_get_toolkit_name(application.get(), nameError.out()));
    if (!toolkit) {
        return LengthUnit::unsupported;
    }
    return AtspiAccessibleElement::lengthUnitOfToolkit(toolkit->c_str());
}

// --- text (libatspi thread) -----------------------------------------------------------------

struct Span {
    int start = 0;
    int end = 0;
};

// The selection when there is one, else the empty span at the caret; nothing when the object
// has neither.
std::optional<Span> selectionOrCaret(AtspiText* text) {
    GErrorHolder countError;
    if (atspi_text_get_n_selections(text, countError.out()) > 0) {
        GErrorHolder rangeError;
        if (AtspiRange* range = atspi_text_get_selection(text, 0, rangeError.out())) {
            Span span{range->start_offset, range->end_offset};
            g_free(range);
            if (span.end < span.start) {
                std::swap(span.start, span.end);
            }
            if (span.end > span.start) {
                return span;
            }
        }
    }
    GErrorHolder caretError;
    const int caret = atspi_text_get_caret_offset(text, caretError.out());
    if (caretError.isSet() || caret < 0) {
        return std::nullopt;
    }
    return Span{caret, caret};
}

std::optional<std::string> readValue(AtspiAccessible* accessible) {
    GObjectRef<AtspiText> text(atspi_accessible_get_text_iface(accessible));
    if (!text) {
        return std::nullopt;
    }
    GErrorHolder error;
    auto value = takeString(atspi_text_get_text(text.get(), 0, -1, error.out()));
    return error.isSet() ? std::nullopt : value;
}

std::optional<std::string> readSelectedText(AtspiAccessible* accessible) {
    GObjectRef<AtspiText> text(atspi_accessible_get_text_iface(accessible));
    if (!text) {
        return std::nullopt;
    }
    const auto span = selectionOrCaret(text.get());
    if (!span) {
        return std::nullopt;
    }
    if (span->end == span->start) {
        return std::string();
    }
    GErrorHolder error;
    auto selected =
        takeString(atspi_text_get_text(text.get(), span->start, span->end, error.out()));
    return error.isSet() ? std::nullopt : selected;
}

std::optional<AccessibilityClient::TextRange> readSelectedTextRange(AtspiAccessible* accessible) {
    GObjectRef<AtspiText> text(atspi_accessible_get_text_iface(accessible));
    if (!text) {
        return std::nullopt;
    }
    const auto span = selectionOrCaret(text.get());
    if (!span) {
        return std::nullopt;
    }
    return AccessibilityClient::TextRange{span->start, span->end - span->start};
}

// The length argument of InsertText for text, in the toolkit's unit; nothing for text that
// cannot be sent.
std::optional<int> insertionLength(const std::string& text, LengthUnit unit) {
    // A NUL would end the string on the bus while the length still counted past it.
    if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) {
        return std::nullopt;
    }
    if (unit == LengthUnit::utf8Bytes) {
        return static_cast<int>(text.size());
    }
    long units = 0;
    const char* position = text.data();
    const char* end = text.data() + text.size();
    while (position < end) {
        units += g_utf8_get_char(position) > 0xFFFF ? 2 : 1;
        position = g_utf8_next_char(position);
    }
    return static_cast<int>(units);
}

Outcome replaceSelection(const AtspiAccessibleElement& element, const std::string& replacement) {
    AtspiAccessible* accessible = element.accessible();
    if (element.isPasswordText()) {
        return Outcome::passwordField;
    }
    GObjectRef<AtspiText> text(atspi_accessible_get_text_iface(accessible));
    if (!text) {
        return Outcome::notText;
    }
    GObjectRef<AtspiEditableText> editable(atspi_accessible_get_editable_text_iface(accessible));
    // A read-only Qt line edit offers EditableText, reports EDITABLE beside READ_ONLY, and
    // takes the text when asked.
    GObjectRef<AtspiStateSet> states(atspi_accessible_get_state_set(accessible));
    const bool writable = states && atspi_state_set_contains(states.get(), ATSPI_STATE_EDITABLE) &&
                          !atspi_state_set_contains(states.get(), ATSPI_STATE_READ_ONLY);
    if (!editable || !writable) {
        return Outcome::notEditable;
    }
    if (element.lengthUnit() == LengthUnit::unsupported) {
        return Outcome::unsupportedToolkit;
    }
    const auto length = insertionLength(replacement, element.lengthUnit());
    if (!length) {
        return Outcome::invalidText;
    }
    const auto span = selectionOrCaret(text.get());
    if (!span) {
        return Outcome::noInsertionPoint;
    }

    std::optional<std::string> removed;
    if (span->end > span->start) {
        GErrorHolder readError;
        removed =
            takeString(atspi_text_get_text(text.get(), span->start, span->end, readError.out()));
        if (readError.isSet() || !removed) {
            return Outcome::callFailed;
        }
        GErrorHolder deleteError;
        if (!atspi_editable_text_delete_text(editable.get(), span->start, span->end,
                                             deleteError.out())) {
            return Outcome::callFailed;
        }
    }
    GErrorHolder insertError;
    if (!atspi_editable_text_insert_text(editable.get(), span->start, replacement.c_str(), *length,
                                         insertError.out())) {
        // Put the user's selected text back rather than leave a hole where it was.
        if (removed) {
            if (const auto removedLength = insertionLength(*removed, element.lengthUnit())) {
                GErrorHolder restoreError;
                atspi_editable_text_insert_text(editable.get(), span->start, removed->c_str(),
                                                *removedLength, restoreError.out());
            }
        }
        return Outcome::callFailed;
    }
    return Outcome::done;
}

}  // namespace

// --- client ---------------------------------------------------------------------------------

AtspiAccessibilityClient::AtspiAccessibilityClient() : AtspiAccessibilityClient(Timeouts{}) {}

AtspiAccessibilityClient::AtspiAccessibilityClient(Timeouts timeouts)
    : thread_(std::make_shared<AtspiMainLoopThread>(timeouts.call, timeouts.startup)) {}

AtspiAccessibilityClient::~AtspiAccessibilityClient() = default;

bool AtspiAccessibilityClient::isTrusted() const {
    GErrorHolder error;
    GObjectRef<GDBusConnection> bus(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, error.out()));
    if (!bus) {
        return false;
    }
    // The shared connection would otherwise end the process when the session bus goes away.
    g_dbus_connection_set_exit_on_close(bus.get(), FALSE);

    GErrorHolder statusError;
    GVariant* status = g_dbus_connection_call_sync(
        bus.get(), "org.a11y.Bus", "/org/a11y/bus", "org.freedesktop.DBus.Properties", "Get",
        g_variant_new("(ss)", "org.a11y.Status", "IsEnabled"), G_VARIANT_TYPE("(v)"),
        G_DBUS_CALL_FLAGS_NONE, kTrustCheckTimeoutMs, nullptr, statusError.out());
    if (status == nullptr) {
        return false;
    }
    GVariant* enabledValue = nullptr;
    g_variant_get(status, "(v)", &enabledValue);
    const bool enabled = g_variant_is_of_type(enabledValue, G_VARIANT_TYPE_BOOLEAN) &&
                         g_variant_get_boolean(enabledValue);
    g_variant_unref(enabledValue);
    g_variant_unref(status);
    if (!enabled) {
        return false;
    }

    GErrorHolder addressError;
    GVariant* address = g_dbus_connection_call_sync(
        bus.get(), "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", nullptr,
        G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE, kTrustCheckTimeoutMs, nullptr,
        addressError.out());
    if (address == nullptr) {
        return false;
    }
    const gchar* addressText = nullptr;
    g_variant_get(address, "(&s)", &addressText);
    const bool reachable = addressText != nullptr && addressText[0] != '\0';
    g_variant_unref(address);
    return reachable;
}

QCoro::Task<AccessibilityClient::FocusedElement> AtspiAccessibilityClient::focusedElement() {
    QFuture<FocusedElement> future = runOnAtspiThread<FocusedElement>(*thread_, [thread = thread_] {
        FocusedElement result;
        if (!thread->ensureConnected()) {
            result.outcome = Outcome::accessibilityBusUnavailable;
            return result;
        }
        GObjectRef<AtspiAccessible> focused = FocusSearch().run();
        if (!focused) {
            result.outcome = Outcome::noFocusedElement;
            return result;
        }
        GErrorHolder roleError;
        const bool isPassword =
            atspi_accessible_get_role(focused.get(), roleError.out()) == ATSPI_ROLE_PASSWORD_TEXT;
        const LengthUnit unit = lengthUnitOf(focused.get());
        result.element =
            std::make_shared<AtspiAccessibleElement>(focused.release(), thread, isPassword, unit);
        result.isSecureTextField = isPassword;
        return result;
    });
    // QCoro resumes this coroutine on the awaiting thread, the main thread.
    co_return co_await future;
}

QCoro::Task<std::optional<std::string>> AtspiAccessibilityClient::value(
    std::shared_ptr<AccessibleElement> element) {
    auto atspiElement = std::dynamic_pointer_cast<AtspiAccessibleElement>(element);
    if (!atspiElement || atspiElement->isPasswordText()) {
        co_return std::nullopt;
    }
    QFuture<std::optional<std::string>> future = runOnAtspiThread<std::optional<std::string>>(
        *thread_, [atspiElement] { return readValue(atspiElement->accessible()); });
    co_return co_await future;
}

QCoro::Task<std::optional<std::string>> AtspiAccessibilityClient::selectedText(
    std::shared_ptr<AccessibleElement> element) {
    auto atspiElement = std::dynamic_pointer_cast<AtspiAccessibleElement>(element);
    if (!atspiElement || atspiElement->isPasswordText()) {
        co_return std::nullopt;
    }
    QFuture<std::optional<std::string>> future = runOnAtspiThread<std::optional<std::string>>(
        *thread_, [atspiElement] { return readSelectedText(atspiElement->accessible()); });
    co_return co_await future;
}

QCoro::Task<std::optional<AccessibilityClient::TextRange>>
AtspiAccessibilityClient::selectedTextRange(std::shared_ptr<AccessibleElement> element) {
    auto atspiElement = std::dynamic_pointer_cast<AtspiAccessibleElement>(element);
    // Even the length of a password is not ours to read.
    if (!atspiElement || atspiElement->isPasswordText()) {
        co_return std::nullopt;
    }
    QFuture<std::optional<TextRange>> future = runOnAtspiThread<std::optional<TextRange>>(
        *thread_, [atspiElement] { return readSelectedTextRange(atspiElement->accessible()); });
    co_return co_await future;
}

QCoro::Task<AccessibilityClient::Outcome> AtspiAccessibilityClient::setSelectedText(
    std::shared_ptr<AccessibleElement> element, std::string text) {
    auto atspiElement = std::dynamic_pointer_cast<AtspiAccessibleElement>(element);
    if (!atspiElement) {
        co_return Outcome::foreignElement;
    }
    if (atspiElement->isPasswordText()) {
        co_return Outcome::passwordField;
    }
    QFuture<Outcome> future =
        runOnAtspiThread<Outcome>(*thread_, [atspiElement, replacement = std::string(text)] {
            return replaceSelection(*atspiElement, replacement);
        });
    co_return co_await future;
}

}  // namespace kelvo::platform
