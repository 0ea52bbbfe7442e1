#include "platform/linux/WaylandDataControlPasteboard.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QMetaObject>
#include <QObject>
#include <atomic>
#include <chrono>
#include <cstring>
#include <deque>
#include <future>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include <wayland-client.h>

#include "wlr-data-control-unstable-v1-client-protocol.h"

namespace kelvo::platform {
namespace {

using namespace std::chrono_literals;

// How long a call waits for the connection's thread, and a read for the owner's data.
constexpr auto kCallTimeout = 1000ms;

// What a text data source offers and what a read asks for, best first: the first two are what
// Wayland toolkits use, the X11 names reach XWayland clients through the compositor's bridge.
const char* const kTextMimeTypes[] = {"text/plain;charset=utf-8", "UTF8_STRING", "text/plain",
                                      "TEXT", "STRING"};

int remainingMilliseconds(std::chrono::steady_clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// Writes all of text to fd, giving up at the deadline (a reader that never reads must not hold
// the connection's thread).
void writeAll(int fd, const std::string& text, std::chrono::steady_clock::time_point deadline) {
    int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    std::size_t written = 0;
    while (written < text.size()) {
        ssize_t count = write(fd, text.data() + written, text.size() - written);
        if (count > 0) {
            written += static_cast<std::size_t>(count);
            continue;
        }
        if (count < 0 && errno == EPIPE) {
            // Take the pending SIGPIPE back, so that it never reaches the process later.
            sigset_t pipeSignal;
            sigemptyset(&pipeSignal);
            sigaddset(&pipeSignal, SIGPIPE);
            timespec now{0, 0};
            sigtimedwait(&pipeSignal, nullptr, &now);
            return;
        }
        if (count < 0 && errno != EAGAIN && errno != EINTR) {
            return;
        }
        pollfd out{fd, POLLOUT, 0};
        if (poll(&out, 1, remainingMilliseconds(deadline)) <= 0) {
            return;
        }
    }
}

// Reads fd to its end, or nothing when the writer does not finish by the deadline.
std::optional<std::string> readAll(int fd, std::chrono::steady_clock::time_point deadline) {
    std::string text;
    char buffer[4096];
    while (true) {
        pollfd in{fd, POLLIN, 0};
        if (poll(&in, 1, remainingMilliseconds(deadline)) <= 0) {
            return std::nullopt;
        }
        ssize_t count = read(fd, buffer, sizeof buffer);
        if (count == 0) {
            return text;
        }
        if (count < 0 && errno != EINTR && errno != EAGAIN) {
            return std::nullopt;
        }
        if (count > 0) {
            text.append(buffer, static_cast<std::size_t>(count));
        }
    }
}

}  // namespace

// Everything that touches the Wayland connection runs on its thread: the listeners, and the
// calls of the main thread, queued as tasks and waited for.
struct WaylandDataControlPasteboard::Connection {
    struct Source {
        Connection* connection = nullptr;
        zwlr_data_control_source_v1* proxy = nullptr;
        std::string text;
        unsigned long generation = 0;
    };

    wl_display* display = nullptr;
    wl_registry* registry = nullptr;
    wl_seat* seat = nullptr;
    zwlr_data_control_manager_v1* manager = nullptr;
    zwlr_data_control_device_v1* device = nullptr;

    // Thread-owned state.
    std::map<zwlr_data_control_offer_v1*, std::vector<std::string>> offers;
    zwlr_data_control_offer_v1* selection = nullptr;
    std::map<zwlr_data_control_source_v1*, std::unique_ptr<Source>> sources;
    Source* lastSource = nullptr;  // the last write while the compositor has not cancelled it

    // Shared with the main thread.
    std::atomic<unsigned long> generation{0};
    std::atomic<bool> lastWriteFetched{false};
    std::atomic<bool> alive{false};

    // The main thread's side: the handler, and the object whose thread it runs on.
    std::function<void()> fetchedHandler;
    QObject mainThreadContext;

    int wakeFd = -1;
    std::mutex tasksMutex;
    std::deque<std::function<void()>> tasks;
    std::atomic<bool> stopping{false};
    std::thread thread;

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
        device = zwlr_data_control_manager_v1_get_data_device(manager, seat);
        zwlr_data_control_device_v1_add_listener(device, &deviceListener, this);
        // The current selection arrives now, before the first read.
        if (wl_display_roundtrip(display) < 0) {
            return;
        }
        wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        alive = true;
        thread = std::thread([this] { run(); });
    }

    ~Connection() {
        if (thread.joinable()) {
            stopping = true;
            wake();
            thread.join();
        }
        for (auto& [offer, types] : offers) {
            zwlr_data_control_offer_v1_destroy(offer);
        }
        for (auto& [proxy, source] : sources) {
            zwlr_data_control_source_v1_destroy(proxy);
        }
        if (device) {
            zwlr_data_control_device_v1_destroy(device);
        }
        if (manager) {
            zwlr_data_control_manager_v1_destroy(manager);
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
        if (wakeFd >= 0) {
            close(wakeFd);
        }
    }

    void wake() {
        std::uint64_t one = 1;
        [[maybe_unused]] ssize_t ignored = write(wakeFd, &one, sizeof one);
    }

    // Runs task on the connection's thread and returns its result, or fallback when the
    // connection is gone or the thread does not get to it in time.
    template <typename Result>
    Result call(std::function<Result()> task, Result fallback) {
        if (!alive) {
            return fallback;
        }
        auto promise = std::make_shared<std::promise<Result>>();
        std::future<Result> result = promise->get_future();
        {
            std::lock_guard lock(tasksMutex);
            tasks.push_back([promise, task = std::move(task)] { promise->set_value(task()); });
        }
        wake();
        if (result.wait_for(kCallTimeout) != std::future_status::ready) {
            return fallback;
        }
        return result.get();
    }

    void run() {
        // A reader that closes its end early must cost a failed write (EPIPE), not the process:
        // SIGPIPE from write() goes to this thread, which keeps it blocked.
        sigset_t pipeSignal;
        sigemptyset(&pipeSignal);
        sigaddset(&pipeSignal, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
        pollfd fds[2] = {{wl_display_get_fd(display), POLLIN, 0}, {wakeFd, POLLIN, 0}};
        while (!stopping) {
            while (wl_display_prepare_read(display) != 0) {
                if (wl_display_dispatch_pending(display) < 0) {
                    return fail();
                }
            }
            wl_display_flush(display);
            if (poll(fds, 2, -1) < 0 && errno != EINTR) {
                wl_display_cancel_read(display);
                return fail();
            }
            if (fds[0].revents & (POLLIN | POLLERR | POLLHUP)) {
                if (wl_display_read_events(display) < 0) {
                    return fail();
                }
            } else {
                wl_display_cancel_read(display);
            }
            if (wl_display_dispatch_pending(display) < 0) {
                return fail();
            }
            if (fds[1].revents & POLLIN) {
                std::uint64_t count = 0;
                [[maybe_unused]] ssize_t ignored = read(wakeFd, &count, sizeof count);
            }
            runTasks();
        }
    }

    // The compositor closed the connection: pending and later calls get their fallbacks.
    void fail() {
        alive = false;
        std::lock_guard lock(tasksMutex);
        tasks.clear();
    }

    void runTasks() {
        std::deque<std::function<void()>> ready;
        {
            std::lock_guard lock(tasksMutex);
            ready.swap(tasks);
        }
        for (auto& task : ready) {
            task();
        }
        wl_display_flush(display);
    }

    // --- on the connection's thread ---

    std::optional<std::string> readSelection() {
        if (lastSource) {
            return lastSource->text;  // ours: no round trip through the compositor
        }
        auto offered = offers.find(selection);
        if (!selection || offered == offers.end()) {
            return std::nullopt;
        }
        for (const char* type : kTextMimeTypes) {
            for (const std::string& candidate : offered->second) {
                if (candidate != type) {
                    continue;
                }
                int pipeFds[2];
                if (pipe2(pipeFds, O_CLOEXEC) != 0) {
                    return std::nullopt;
                }
                zwlr_data_control_offer_v1_receive(selection, type, pipeFds[1]);
                close(pipeFds[1]);
                wl_display_flush(display);
                // Another client owns it (ours is answered above), so this thread may wait.
                std::optional<std::string> text =
                    readAll(pipeFds[0], std::chrono::steady_clock::now() + kCallTimeout);
                close(pipeFds[0]);
                return text;
            }
        }
        return std::nullopt;
    }

    bool setSelection(const std::optional<std::string>& text) {
        zwlr_data_control_source_v1* proxy = nullptr;
        if (text) {
            proxy = zwlr_data_control_manager_v1_create_data_source(manager);
            auto source = std::make_unique<Source>();
            source->connection = this;
            source->proxy = proxy;
            source->text = *text;
            source->generation = ++generation;
            zwlr_data_control_source_v1_add_listener(proxy, &sourceListener, source.get());
            for (const char* type : kTextMimeTypes) {
                zwlr_data_control_source_v1_offer(proxy, type);
            }
            lastSource = source.get();
            sources[proxy] = std::move(source);
        } else {
            ++generation;
            lastSource = nullptr;
        }
        lastWriteFetched = false;
        zwlr_data_control_device_v1_set_selection(device, proxy);
        // The compositor has taken it (or cancelled it at once) when the round trip returns.
        if (wl_display_roundtrip(display) < 0) {
            fail();
            return false;
        }
        return !text || lastSource != nullptr;
    }

    void sourceSend(Source* source, const char* /*mimeType*/, int fd) {
        writeAll(fd, source->text, std::chrono::steady_clock::now() + kCallTimeout);
        close(fd);
        if (source != lastSource) {
            return;
        }
        lastWriteFetched = true;
        unsigned long fetchedGeneration = source->generation;
        QMetaObject::invokeMethod(
            &mainThreadContext,
            [this, fetchedGeneration] {
                if (fetchedGeneration == generation && fetchedHandler) {
                    // A copy: the handler may replace itself.
                    auto handler = fetchedHandler;
                    handler();
                }
            },
            Qt::QueuedConnection);
    }

    void sourceCancelled(Source* source) {
        if (source == lastSource) {
            lastSource = nullptr;
        }
        zwlr_data_control_source_v1_destroy(source->proxy);
        sources.erase(source->proxy);
    }

    // --- listeners ---

    static void registryGlobal(void* data, wl_registry* registry, uint32_t name,
                               const char* interface, uint32_t version) {
        auto* self = static_cast<Connection*>(data);
        if (std::strcmp(interface, wl_seat_interface.name) == 0 && !self->seat) {
            // The first seat: desktops have one.
            self->seat = static_cast<wl_seat*>(
                wl_registry_bind(registry, name, &wl_seat_interface, version < 2 ? version : 2));
        } else if (std::strcmp(interface, zwlr_data_control_manager_v1_interface.name) == 0) {
            self->manager = static_cast<zwlr_data_control_manager_v1*>(
                wl_registry_bind(registry, name, &zwlr_data_control_manager_v1_interface, 1));
        }
    }
    static void registryGlobalRemove(void*, wl_registry*, uint32_t) {}
    static constexpr wl_registry_listener registryListener = {registryGlobal, registryGlobalRemove};

    static void offerMimeType(void* data, zwlr_data_control_offer_v1* offer, const char* type) {
        static_cast<Connection*>(data)->offers[offer].emplace_back(type);
    }
    static constexpr zwlr_data_control_offer_v1_listener offerListener = {offerMimeType};

    static void deviceDataOffer(void* data, zwlr_data_control_device_v1*,
                                zwlr_data_control_offer_v1* offer) {
        auto* self = static_cast<Connection*>(data);
        self->offers[offer];
        zwlr_data_control_offer_v1_add_listener(offer, &offerListener, self);
    }
    static void deviceSelection(void* data, zwlr_data_control_device_v1*,
                                zwlr_data_control_offer_v1* offer) {
        auto* self = static_cast<Connection*>(data);
        if (self->selection && self->selection != offer) {
            self->offers.erase(self->selection);
            zwlr_data_control_offer_v1_destroy(self->selection);
        }
        self->selection = offer;
    }
    static void deviceFinished(void* data, zwlr_data_control_device_v1*) {
        static_cast<Connection*>(data)->alive = false;
    }
    static void devicePrimarySelection(void* data, zwlr_data_control_device_v1*,
                                       zwlr_data_control_offer_v1* offer) {
        // Not ours to track; its offer is not needed.
        if (offer) {
            static_cast<Connection*>(data)->offers.erase(offer);
            zwlr_data_control_offer_v1_destroy(offer);
        }
    }
    static constexpr zwlr_data_control_device_v1_listener deviceListener = {
        deviceDataOffer, deviceSelection, deviceFinished, devicePrimarySelection};

    static void sourceSendEvent(void* data, zwlr_data_control_source_v1*, const char* type,
                                int32_t fd) {
        auto* source = static_cast<Source*>(data);
        source->connection->sourceSend(source, type, fd);
    }
    static void sourceCancelledEvent(void* data, zwlr_data_control_source_v1*) {
        auto* source = static_cast<Source*>(data);
        source->connection->sourceCancelled(source);
    }
    static constexpr zwlr_data_control_source_v1_listener sourceListener = {sourceSendEvent,
                                                                            sourceCancelledEvent};
};

WaylandDataControlPasteboard::WaylandDataControlPasteboard(const std::string& displayName)
    : connection_(std::make_unique<Connection>(displayName)) {}

WaylandDataControlPasteboard::~WaylandDataControlPasteboard() = default;

bool WaylandDataControlPasteboard::isAvailable() const {
    return connection_->alive;
}

std::optional<std::string> WaylandDataControlPasteboard::readString() const {
    Connection* connection = connection_.get();
    return connection->call<std::optional<std::string>>(
        [connection] { return connection->readSelection(); }, std::nullopt);
}

bool WaylandDataControlPasteboard::writeString(const std::string& text) {
    Connection* connection = connection_.get();
    return connection->call<bool>([connection, text] { return connection->setSelection(text); },
                                  false);
}

void WaylandDataControlPasteboard::clear() {
    Connection* connection = connection_.get();
    connection->call<bool>([connection] { return connection->setSelection(std::nullopt); }, false);
}

bool WaylandDataControlPasteboard::lastWriteFetched() const {
    return connection_->lastWriteFetched;
}

bool WaylandDataControlPasteboard::holdsLastWrite() const {
    Connection* connection = connection_.get();
    // A round trip first, so that a cancel the compositor has already sent is seen.
    return connection->call<bool>(
        [connection] {
            wl_display_roundtrip(connection->display);
            return connection->lastSource != nullptr;
        },
        false);
}

void WaylandDataControlPasteboard::setFetchedHandler(std::function<void()> handler) {
    connection_->fetchedHandler = std::move(handler);
}

}  // namespace kelvo::platform
