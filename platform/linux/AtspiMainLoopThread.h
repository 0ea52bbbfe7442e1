#pragma once

// AtspiMainLoopThread is the one thread on which this process talks to libatspi. libatspi's calls
// are synchronous D-Bus round trips and its state is process-wide and not thread-safe, so every
// call goes through here, in the order posted. The thread runs a main loop on a GMainContext of
// its own, pushed as the thread default and handed to atspi_set_main_context, so libatspi's
// D-Bus traffic is dispatched here and never needs the Qt main loop: when the application queries
// its own windows, its main thread stays free to answer.
//
// libatspi attaches some connections to the process's default context regardless (the bus at
// atspi_init, and each private peer-to-peer connection it opens to a GTK application when a
// reply brings the address). A thread that iterated that context would read replies meant for a
// call blocked here (the call then waits out its timeout: measured, a second per GTK insertion)
// and run libatspi's handlers concurrently with this thread (aborts in libdbus). The application
// therefore runs Qt without its GLib event dispatcher, so that nothing iterates the default
// context; for hosts that do, every connection is moved back to this thread's context after every
// dispatch here, before the new connection has traffic.
//
// libatspi is connected lazily, by the first work that calls ensureConnected(): a session whose
// accessibility bus comes up after us still gets connected later. Method calls time out after
// callTimeout, so a frozen application cannot hang us; an application in its first
// startupTimeout may take that long instead.
//
// post() may be called from any thread. Destruction runs the work already posted, ends the loop
// and joins; when it happens on the loop thread itself (the last owner let go there), the thread
// is left to finish on its own instead. Shared by the accessibility client and its elements,
// which hand their libatspi references back here to be dropped.

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include <glib.h>

namespace kelvo::platform {

class AtspiMainLoopThread {
  public:
    AtspiMainLoopThread(std::chrono::milliseconds callTimeout,
                        std::chrono::milliseconds startupTimeout);
    ~AtspiMainLoopThread();

    AtspiMainLoopThread(const AtspiMainLoopThread&) = delete;
    AtspiMainLoopThread& operator=(const AtspiMainLoopThread&) = delete;

    // Runs work on the loop thread, after everything posted before it. work must not throw.
    void post(std::function<void()> work);

    bool isLoopThread() const noexcept;

    // Loop thread only: connects libatspi to the accessibility bus unless already connected;
    // false when the bus cannot be reached (the next call tries again).
    bool ensureConnected();

  private:
    struct LoopState;

    std::shared_ptr<LoopState> state_;
    std::thread thread_;
};

}  // namespace kelvo::platform
