#include "platform/linux/WaylandVirtualKeyboardSynthesizer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <chrono>
#include <cstring>
#include <map>
#include <optional>

#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include "platform/linux/XTestKeySynthesizer.h"
#include "wlr-foreign-toplevel-management-unstable-v1-client-protocol.h"

namespace kelvo::platform {
namespace {

// The virtual-keyboard protocol's two interfaces, as wayland-scanner would describe them. No
// Debian 12 package ships the protocol's XML (it lives in wlroots' sources), and these four
// messages are all of it: requests only, no events.
//   zwp_virtual_keyboard_manager_v1.create_virtual_keyboard(object wl_seat, new_id)
//   zwp_virtual_keyboard_v1.keymap(uint format, fd, uint size) / key(uint time, uint key,
//   uint state) / modifiers(uint depressed, uint latched, uint locked, uint group) / destroy()
extern const wl_interface virtualKeyboardInterface;
const wl_interface* const createTypes[] = {&wl_seat_interface, &virtualKeyboardInterface};
const wl_interface* const noTypes[] = {nullptr, nullptr, nullptr, nullptr};
const wl_message managerRequests[] = {
    {"create_virtual_keyboard", "on", const_cast<const wl_interface**>(createTypes)}};
const wl_message keyboardRequests[] = {
    {"keymap", "uhu", const_cast<const wl_interface**>(noTypes)},
    {"key", "uuu", const_cast<const wl_interface**>(noTypes)},
    {"modifiers", "uuuu", const_cast<const wl_interface**>(noTypes)},
    {"destroy", "", const_cast<const wl_interface**>(noTypes)},
};
const wl_interface virtualKeyboardManagerInterface = {
    "zwp_virtual_keyboard_manager_v1", 1, 1, managerRequests, 0, nullptr};
const wl_interface virtualKeyboardInterface = {"zwp_virtual_keyboard_v1", 1, 4,
                                               keyboardRequests,          0, nullptr};

enum KeyboardRequest : uint32_t { keymapRequest = 0, keyRequest, modifiersRequest, destroyRequest };

constexpr uint32_t kKeyPressed = 1;  // wl_keyboard.key_state
constexpr uint32_t kKeyReleased = 0;
// Evdev key codes (linux/input-event-codes.h) are XKB key codes less 8.
constexpr uint32_t kXkbEvdevOffset = 8;

struct KeyChordKeys {
    uint32_t control = 0;
    uint32_t shift = 0;
    uint32_t v = 0;
    uint32_t controlMask = 0;
    uint32_t shiftMask = 0;
};

// The first key of the keymap that types keysym on its first level.
std::optional<xkb_keycode_t> keycodeTyping(xkb_keymap* keymap, xkb_keysym_t keysym) {
    for (xkb_keycode_t code = xkb_keymap_min_keycode(keymap);
         code <= xkb_keymap_max_keycode(keymap); ++code) {
        const xkb_keysym_t* symbols = nullptr;
        int count = xkb_keymap_key_get_syms_by_level(keymap, code, 0, 0, &symbols);
        for (int i = 0; i < count; ++i) {
            if (symbols[i] == keysym) {
                return code;
            }
        }
    }
    return std::nullopt;
}

uint32_t currentMilliseconds() {
    return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count());
}

}  // namespace

struct WaylandVirtualKeyboardSynthesizer::Connection {
    struct Toplevel {
        std::string appId;
        bool activated = false;
        // Sent as a batch: applied at done.
        std::string pendingAppId;
        bool pendingActivated = false;
    };

    wl_display* display = nullptr;
    wl_registry* registry = nullptr;
    wl_seat* seat = nullptr;
    wl_proxy* manager = nullptr;
    wl_proxy* keyboard = nullptr;
    zwlr_foreign_toplevel_manager_v1* toplevels = nullptr;
    std::map<zwlr_foreign_toplevel_handle_v1*, Toplevel> windows;
    std::optional<KeyChordKeys> keys;
    std::unique_ptr<QSocketNotifier> notifier;

    explicit Connection(const std::string& displayName) {
        display = wl_display_connect(displayName.empty() ? nullptr : displayName.c_str());
        if (!display) {
            return;
        }
        registry = wl_display_get_registry(display);
        wl_registry_add_listener(registry, &registryListener, this);
        wl_display_roundtrip(display);
        if (!seat || !manager) {
            return;
        }
        // The toplevels that exist now arrive with this round trip.
        if (wl_display_roundtrip(display) < 0) {
            return;
        }
        notifier =
            std::make_unique<QSocketNotifier>(wl_display_get_fd(display), QSocketNotifier::Read);
        QObject::connect(notifier.get(), &QSocketNotifier::activated, [this] { dispatch(); });
    }

    ~Connection() {
        notifier.reset();
        for (auto& [handle, window] : windows) {
            zwlr_foreign_toplevel_handle_v1_destroy(handle);
        }
        if (toplevels) {
            zwlr_foreign_toplevel_manager_v1_destroy(toplevels);
        }
        if (keyboard) {
            wl_proxy_marshal_flags(keyboard, destroyRequest, nullptr,
                                   wl_proxy_get_version(keyboard), WL_MARSHAL_FLAG_DESTROY);
        }
        if (manager) {
            wl_proxy_destroy(manager);
        }
        if (seat) {
            wl_seat_destroy(seat);
        }
        if (registry) {
            wl_registry_destroy(registry);
        }
        if (display) {
            wl_display_disconnect(display);
        }
    }

    bool available() const {
        return display && seat && manager && wl_display_get_error(display) == 0;
    }

    // The keyboard is made at the first paste, not before: Sway 1.7 with an input method holding
    // the keyboard grab (Fcitx5) crashes at the next focus change when a virtual keyboard that
    // never typed goes away (tried headless), and an application that never pastes should not
    // leave one behind at its exit.
    bool ensureKeyboard() {
        if (keys) {
            return true;
        }
        if (!keyboard) {
            keyboard = wl_proxy_marshal_flags(manager, 0, &virtualKeyboardInterface,
                                              wl_proxy_get_version(manager), 0, seat, nullptr);
        }
        // A refused keyboard (unauthorized) ends the connection at the round trip.
        if (!uploadKeymap() || wl_display_roundtrip(display) < 0) {
            keys.reset();
            return false;
        }
        return true;
    }

    // Reads what the compositor sent (window changes) so that it never piles up.
    void dispatch() {
        if (wl_display_prepare_read(display) == 0) {
            wl_display_read_events(display);
        }
        if (wl_display_dispatch_pending(display) < 0) {
            notifier->setEnabled(false);
        }
        wl_display_flush(display);
    }

    // A US layout: every Latin layout has V, Control and Shift, and the compositor hands each
    // keyboard's own keymap to the client with its keys.
    bool uploadKeymap() {
        xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES);
        if (!context) {
            return false;
        }
        xkb_rule_names names{"evdev", "pc105", "us", "", ""};
        xkb_keymap* keymap =
            xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
        bool uploaded = false;
        if (keymap) {
            auto control = keycodeTyping(keymap, XKB_KEY_Control_L);
            auto shift = keycodeTyping(keymap, XKB_KEY_Shift_L);
            auto v = keycodeTyping(keymap, XKB_KEY_v);
            char* text = xkb_keymap_get_as_string(keymap, XKB_KEYMAP_FORMAT_TEXT_V1);
            int fd = memfd_create("kelvovoice-keymap", MFD_CLOEXEC);
            if (control && shift && v && text && fd >= 0) {
                std::size_t size = std::strlen(text) + 1;
                if (write(fd, text, size) == static_cast<ssize_t>(size)) {
                    wl_proxy_marshal_flags(
                        keyboard, keymapRequest, nullptr, wl_proxy_get_version(keyboard), 0,
                        XKB_KEYMAP_FORMAT_TEXT_V1, fd, static_cast<uint32_t>(size));
                    keys = KeyChordKeys{
                        *control - kXkbEvdevOffset,
                        *shift - kXkbEvdevOffset,
                        *v - kXkbEvdevOffset,
                        1u << xkb_keymap_mod_get_index(keymap, XKB_MOD_NAME_CTRL),
                        1u << xkb_keymap_mod_get_index(keymap, XKB_MOD_NAME_SHIFT),
                    };
                    uploaded = true;
                }
            }
            if (fd >= 0) {
                close(fd);
            }
            free(text);
            xkb_keymap_unref(keymap);
        }
        xkb_context_unref(context);
        return uploaded;
    }

    void key(uint32_t code, uint32_t state) {
        wl_proxy_marshal_flags(keyboard, keyRequest, nullptr, wl_proxy_get_version(keyboard), 0,
                               currentMilliseconds(), code, state);
    }
    void modifiers(uint32_t depressed) {
        wl_proxy_marshal_flags(keyboard, modifiersRequest, nullptr, wl_proxy_get_version(keyboard),
                               0, depressed, 0u, 0u, 0u);
    }

    std::optional<std::string> activeAppId() {
        if (!toplevels) {
            return std::nullopt;
        }
        // Whatever changed since the last read, the focus included.
        wl_display_roundtrip(display);
        for (const auto& [handle, window] : windows) {
            if (window.activated) {
                return window.appId;
            }
        }
        return std::nullopt;
    }

    void typeChord(bool withShift) {
        uint32_t mask = keys->controlMask;
        key(keys->control, kKeyPressed);
        if (withShift) {
            key(keys->shift, kKeyPressed);
            mask |= keys->shiftMask;
        }
        modifiers(mask);
        key(keys->v, kKeyPressed);
        key(keys->v, kKeyReleased);
        if (withShift) {
            key(keys->shift, kKeyReleased);
        }
        key(keys->control, kKeyReleased);
        modifiers(0);
        wl_display_flush(display);
    }

    // --- listeners ---

    static void registryGlobal(void* data, wl_registry* registry, uint32_t name,
                               const char* interface, uint32_t version) {
        auto* self = static_cast<Connection*>(data);
        if (std::strcmp(interface, wl_seat_interface.name) == 0 && !self->seat) {
            self->seat = static_cast<wl_seat*>(
                wl_registry_bind(registry, name, &wl_seat_interface, version < 2 ? version : 2));
        } else if (std::strcmp(interface, virtualKeyboardManagerInterface.name) == 0) {
            self->manager = static_cast<wl_proxy*>(
                wl_registry_bind(registry, name, &virtualKeyboardManagerInterface, 1));
        } else if (std::strcmp(interface, zwlr_foreign_toplevel_manager_v1_interface.name) == 0) {
            self->toplevels = static_cast<zwlr_foreign_toplevel_manager_v1*>(
                wl_registry_bind(registry, name, &zwlr_foreign_toplevel_manager_v1_interface, 1));
            zwlr_foreign_toplevel_manager_v1_add_listener(self->toplevels, &toplevelsListener,
                                                          self);
        }
    }
    static void registryGlobalRemove(void*, wl_registry*, uint32_t) {}
    static constexpr wl_registry_listener registryListener = {registryGlobal, registryGlobalRemove};

    static void toplevelsToplevel(void* data, zwlr_foreign_toplevel_manager_v1*,
                                  zwlr_foreign_toplevel_handle_v1* handle) {
        auto* self = static_cast<Connection*>(data);
        self->windows[handle];
        zwlr_foreign_toplevel_handle_v1_add_listener(handle, &windowListener, self);
    }
    static void toplevelsFinished(void* data, zwlr_foreign_toplevel_manager_v1*) {
        auto* self = static_cast<Connection*>(data);
        zwlr_foreign_toplevel_manager_v1_destroy(self->toplevels);
        self->toplevels = nullptr;
    }
    static constexpr zwlr_foreign_toplevel_manager_v1_listener toplevelsListener = {
        toplevelsToplevel, toplevelsFinished};

    static void windowTitle(void*, zwlr_foreign_toplevel_handle_v1*, const char*) {}
    static void windowAppId(void* data, zwlr_foreign_toplevel_handle_v1* handle, const char* id) {
        static_cast<Connection*>(data)->windows[handle].pendingAppId = id;
    }
    static void windowOutput(void*, zwlr_foreign_toplevel_handle_v1*, wl_output*) {}
    static void windowState(void* data, zwlr_foreign_toplevel_handle_v1* handle, wl_array* states) {
        bool activated = false;
        const auto* state = static_cast<const uint32_t*>(states->data);
        for (std::size_t i = 0; i < states->size / sizeof(uint32_t); ++i) {
            activated = activated || state[i] == ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_ACTIVATED;
        }
        static_cast<Connection*>(data)->windows[handle].pendingActivated = activated;
    }
    static void windowDone(void* data, zwlr_foreign_toplevel_handle_v1* handle) {
        Toplevel& window = static_cast<Connection*>(data)->windows[handle];
        window.appId = window.pendingAppId;
        window.activated = window.pendingActivated;
    }
    static void windowClosed(void* data, zwlr_foreign_toplevel_handle_v1* handle) {
        static_cast<Connection*>(data)->windows.erase(handle);
        zwlr_foreign_toplevel_handle_v1_destroy(handle);
    }
    static void windowParent(void*, zwlr_foreign_toplevel_handle_v1*,
                             zwlr_foreign_toplevel_handle_v1*) {}
    static constexpr zwlr_foreign_toplevel_handle_v1_listener windowListener = {
        windowTitle, windowAppId, windowOutput, windowOutput,
        windowState, windowDone,  windowClosed, windowParent};
};

WaylandVirtualKeyboardSynthesizer::WaylandVirtualKeyboardSynthesizer(
    WindowClassList extraTerminalClasses, const std::string& displayName)
    : connection_(std::make_unique<Connection>(displayName)),
      extraTerminalClasses_(std::move(extraTerminalClasses)) {}

WaylandVirtualKeyboardSynthesizer::~WaylandVirtualKeyboardSynthesizer() = default;

bool WaylandVirtualKeyboardSynthesizer::isAvailable() const {
    return connection_->available();
}

bool WaylandVirtualKeyboardSynthesizer::knowsActiveWindow() const {
    return connection_->toplevels != nullptr;
}

bool WaylandVirtualKeyboardSynthesizer::sendPaste() {
    if (!connection_->available() || !connection_->ensureKeyboard()) {
        return false;
    }
    bool terminal = false;
    if (auto appId = connection_->activeAppId()) {
        auto extra = extraTerminalClasses_ ? extraTerminalClasses_() : std::vector<std::string>{};
        terminal = XTestKeySynthesizer::isTerminalWindowClass(*appId, *appId, extra);
    }
    connection_->typeChord(terminal);
    return true;
}

}  // namespace kelvo::platform
