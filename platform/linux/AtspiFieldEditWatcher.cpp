// libatspi first: its GLib headers have a member named `signals`, which Qt's keyword would break.
#include <atspi/atspi.h>

#include "platform/linux/AtspiFieldEditWatcher.h"

#include <QCoreApplication>
#include <QCoroFuture>
#include <QCoroTimer>
#include <QFuture>
#include <QMetaObject>
#include <QPromise>

#include <array>
#include <chrono>
#include <string_view>
#include <utility>

#include "platform/linux/AtspiAccessibleElement.h"
#include "platform/linux/GObjectRef.h"
#include "platform/linux/RunOnAtspiThread.h"

namespace kelvo::platform {

struct AtspiFieldEditWatcher::Watch {
    std::shared_ptr<AtspiAccessibleElement> element;
    // Main thread only.
    Handlers handlers;
    bool active = true;
    // libatspi thread only.
    AtspiEventListener* listener = nullptr;
    // The listener's reference to this watch, dropped after the listener is deregistered.
    std::shared_ptr<Watch>* listenerReference = nullptr;
};

namespace {

constexpr std::array<const char*, 3> kEventTypes = {
    "object:text-changed:insert",
    "object:text-changed:delete",
    "object:state-changed:focused",
};
// An input method's commit shows in the field some milliseconds after it returned.
constexpr int kBaselineAttempts = 10;
constexpr auto kBaselineRetryWait = std::chrono::milliseconds(100);

using Watch = AtspiFieldEditWatcher::Watch;
using Handlers = FieldEditWatcher::Handlers;

// Runs `work` on the main thread unless the watch has ended by then.
template <typename Work>
void toMainThread(const std::shared_ptr<Watch>& watch, Work work) {
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [watch, work = std::move(work)]() mutable {
            if (watch->active) {
                work(watch->handlers);
            }
        },
        Qt::QueuedConnection);
}

void onEvent(AtspiEvent* event, void* data) {
    const std::shared_ptr<Watch>& watch = *static_cast<std::shared_ptr<Watch>*>(data);
    const std::string_view type = event->type != nullptr ? event->type : "";
    const bool ofField = event->source == watch->element->accessible();
    const auto offset = static_cast<std::size_t>(std::max(event->detail1, 0));
    const auto length = static_cast<std::size_t>(std::max(event->detail2, 0));
    if (ofField && type.starts_with("object:text-changed:insert")) {
        std::string text = G_VALUE_HOLDS_STRING(&event->any_data) &&
                                   g_value_get_string(&event->any_data) != nullptr
                               ? g_value_get_string(&event->any_data)
                               : "";
        toMainThread(watch, [offset, text = std::move(text)](Handlers& handlers) {
            handlers.inserted(offset, text);
        });
    } else if (ofField && type.starts_with("object:text-changed:delete")) {
        toMainThread(watch,
                     [offset, length](Handlers& handlers) { handlers.deleted(offset, length); });
    } else if (type.starts_with("object:state-changed:focused") &&
               (ofField ? event->detail1 == 0 : event->detail1 != 0)) {
        toMainThread(watch, [](Handlers& handlers) { handlers.ended(); });
    }
    g_boxed_free(ATSPI_TYPE_EVENT, event);
}

std::size_t characterCount(std::string_view text) {
    return static_cast<std::size_t>(g_utf8_strlen(text.data(), static_cast<gssize>(text.size())));
}

// The dictated text and `neighbourhood` characters either side, when it ends at the caret or lies
// near it. libatspi thread.
std::optional<FieldEditWatcher::Baseline> readBaseline(AtspiAccessible* accessible,
                                                       const std::string& dictated,
                                                       std::size_t neighbourhood) {
    GObjectRef<AtspiText> text(atspi_accessible_get_text_iface(accessible));
    if (!text) {
        return std::nullopt;
    }
    GError* error = nullptr;
    const int caret = atspi_text_get_caret_offset(text.get(), &error);
    if (error != nullptr || caret < 0) {
        g_clear_error(&error);
        return std::nullopt;
    }
    const auto length = static_cast<long>(characterCount(dictated));
    const auto around = static_cast<long>(neighbourhood);
    const long from = std::max(0L, caret - length - around);
    const long to = caret + length + around;  // the end is clipped by the toolkit
    gchar* read =
        atspi_text_get_text(text.get(), static_cast<gint>(from), static_cast<gint>(to), &error);
    if (error != nullptr || read == nullptr) {
        g_clear_error(&error);
        g_free(read);
        return std::nullopt;
    }
    const std::string window(read);
    g_free(read);
    // Where it ends at the caret, else its last occurrence in the window.
    const std::size_t beforeCaret =
        caret - from - length >= 0
            ? g_utf8_offset_to_pointer(window.c_str(), caret - from - length) - window.c_str()
            : std::string::npos;
    std::size_t at = beforeCaret != std::string::npos &&
                             window.compare(beforeCaret, dictated.size(), dictated) == 0
                         ? beforeCaret
                         : window.rfind(dictated);
    if (dictated.empty() || at == std::string::npos) {
        return std::nullopt;
    }
    // Only the neighbourhood on either side is kept.
    const std::size_t spanStart = characterCount(std::string_view(window).substr(0, at));
    const std::size_t keepFrom = spanStart > neighbourhood ? spanStart - neighbourhood : 0;
    const std::size_t keepTo = spanStart + static_cast<std::size_t>(length) + neighbourhood;
    const char* begin = g_utf8_offset_to_pointer(window.c_str(), static_cast<glong>(keepFrom));
    const std::size_t windowCharacters = characterCount(window);
    const char* end = g_utf8_offset_to_pointer(
        window.c_str(), static_cast<glong>(std::min(keepTo, windowCharacters)));
    return FieldEditWatcher::Baseline{
        std::string(begin, end), static_cast<std::size_t>(from) + keepFrom, spanStart - keepFrom,
        spanStart - keepFrom + static_cast<std::size_t>(length)};
}

// Starts listening. libatspi thread.
void startListening(const std::shared_ptr<Watch>& watch) {
    // No destroy notify: libatspi calls it once per deregistered event type, not once.
    watch->listenerReference = new std::shared_ptr<Watch>(watch);
    watch->listener = atspi_event_listener_new(onEvent, watch->listenerReference, nullptr);
    GError* error = nullptr;
    for (const char* type : kEventTypes) {
        atspi_event_listener_register(watch->listener, type, &error);
        g_clear_error(&error);
    }
}

// libatspi thread.
void stopListening(const std::shared_ptr<Watch>& watch) {
    if (watch->listener == nullptr) {
        return;
    }
    GError* error = nullptr;
    for (const char* type : kEventTypes) {
        atspi_event_listener_deregister(watch->listener, type, &error);
        g_clear_error(&error);
    }
    g_object_unref(std::exchange(watch->listener, nullptr));
    // No callback runs any more (they run on this thread): the listener's reference can go.
    delete std::exchange(watch->listenerReference, nullptr);
}

}  // namespace

AtspiFieldEditWatcher::AtspiFieldEditWatcher(AccessibilityClient& accessibility)
    : accessibility_(accessibility) {}

AtspiFieldEditWatcher::~AtspiFieldEditWatcher() {
    stop();
}

QCoro::Task<std::optional<FieldEditWatcher::Baseline>> AtspiFieldEditWatcher::watch(
    std::string dictated, std::size_t neighbourhood, Handlers handlers) {
    stop();
    auto focused = co_await accessibility_.focusedElement();
    auto element = std::dynamic_pointer_cast<AtspiAccessibleElement>(focused.element);
    if (!element || focused.isSecureTextField || element->isPasswordText()) {
        co_return std::nullopt;
    }
    auto watch = std::make_shared<Watch>();
    watch->element = element;
    watch->handlers = std::move(handlers);
    current_ = watch;
    for (int attempt = 0; attempt < kBaselineAttempts; ++attempt) {
        if (attempt > 0) {
            co_await QCoro::sleepFor(kBaselineRetryWait);
        }
        if (current_ != watch) {
            co_return std::nullopt;  // stopped, or another watch began meanwhile
        }
        QFuture<std::optional<Baseline>> future = runOnAtspiThread<std::optional<Baseline>>(
            *element->thread(), [watch, dictated, neighbourhood] {
                auto baseline = readBaseline(watch->element->accessible(), dictated, neighbourhood);
                if (baseline) {
                    startListening(watch);
                }
                return baseline;
            });
        std::optional<Baseline> baseline = co_await future;
        if (current_ != watch) {
            // Stopped while the read was under way; stop() could not see the listener yet.
            element->thread()->post([watch] { stopListening(watch); });
            co_return std::nullopt;
        }
        if (baseline) {
            co_return baseline;
        }
    }
    stop();
    co_return std::nullopt;
}

void AtspiFieldEditWatcher::stop() {
    if (!current_) {
        return;
    }
    std::shared_ptr<Watch> watch = std::exchange(current_, nullptr);
    watch->active = false;
    watch->handlers = {};
    watch->element->thread()->post([watch] { stopListening(watch); });
}

}  // namespace kelvo::platform
