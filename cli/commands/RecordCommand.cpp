#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <ctime>
#include <optional>
#include <string>

#include "cli/commands/CommandGroups.h"
#include "cli/commands/SecondsOption.h"
#include "core/services/AudioRecorderService.h"

namespace kelvo::cli {

namespace {

void doNothing(int) {}

/// While alive, SIGINT and SIGTERM are blocked in this thread and in every thread started
/// meanwhile (the recorder's capture thread, PulseAudio's), so that they are only ever taken by
/// waitForInterrupt() and the recording can be stopped and finished in an orderly way instead of
/// the process dying with a file that has no index. A signal the process inherited as ignored
/// (a background job of a shell without job control) stays ignored. Everything is restored on
/// destruction; an interrupt that arrived after the wait (a second Ctrl+C while the file is being
/// finished) is consumed, as the recording is ending anyway.
class InterruptGuard {
  public:
    InterruptGuard() {
        sigemptyset(&signals_);
        for (const int signal : {SIGINT, SIGTERM}) {
            struct sigaction current {};
            sigaction(signal, nullptr, &current);
            if (current.sa_handler == SIG_IGN) {
                continue;
            }
            // A blocked signal whose disposition is "default" would still be waited for, but a
            // handler makes the intent explicit and independent of the inherited disposition.
            struct sigaction handler {};
            handler.sa_handler = doNothing;
            sigemptyset(&handler.sa_mask);
            sigaction(signal, &handler, &previous_[installed_].action);
            previous_[installed_++].signal = signal;
            sigaddset(&signals_, signal);
        }
        pthread_sigmask(SIG_BLOCK, &signals_, &previousMask_);
    }

    ~InterruptGuard() {
        const timespec now{};
        while (sigtimedwait(&signals_, nullptr, &now) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
        for (int i = 0; i < installed_; ++i) {
            sigaction(previous_[i].signal, &previous_[i].action, nullptr);
        }
    }

    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    /// Waits for SIGINT or SIGTERM, or until `seconds` have passed when given.
    void waitForInterrupt(std::optional<double> seconds) const {
        if (!seconds) {
            int signal = 0;
            sigwait(&signals_, &signal);
            return;
        }
        timespec deadline{};
        clock_gettime(CLOCK_MONOTONIC, &deadline);
        const double whole = std::floor(*seconds);
        deadline.tv_sec += static_cast<time_t>(whole);
        deadline.tv_nsec += static_cast<long>((*seconds - whole) * 1e9);
        if (deadline.tv_nsec >= 1000000000L) {
            deadline.tv_sec += 1;
            deadline.tv_nsec -= 1000000000L;
        }
        for (;;) {
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            timespec left{deadline.tv_sec - now.tv_sec, deadline.tv_nsec - now.tv_nsec};
            if (left.tv_nsec < 0) {
                left.tv_sec -= 1;
                left.tv_nsec += 1000000000L;
            }
            if (left.tv_sec < 0) {
                return;
            }
            // Returns early for a signal of ours; EINTR (another signal) waits again.
            if (sigtimedwait(&signals_, nullptr, &left) > 0) {
                return;
            }
            if (errno == EAGAIN) {
                return;
            }
        }
    }

  private:
    struct Previous {
        int signal = 0;
        struct sigaction action {};
    };
    sigset_t signals_{};
    sigset_t previousMask_{};
    Previous previous_[2];
    int installed_ = 0;
};

void runRecord(const ParsedArguments& arguments, CommandContext& context) {
    const std::optional<double> seconds = secondsOption(arguments);
    const InterruptGuard guard;
    AudioRecorderService recorder;
    recorder.startRecording();
    context.diagnostics() << (seconds ? "Recording; press Ctrl+C to stop early."
                                      : "Recording; press Ctrl+C to stop.")
                          << std::endl;
    guard.waitForInterrupt(seconds);
    context.writeText(recorder.stopRecording().string());
}

}  // namespace

void registerRecordCommand(CommandRegistry& registry) {
    registry.add(Command{
        "record",
        "[--seconds N]",
        "Record the default microphone into a 16 kHz mono AAC file in the temporary folder, until "
        "interrupted (Ctrl+C, SIGTERM) or for N seconds, and print the file's path.",
        ArgumentParser().option("--seconds"),
        runRecord,
    });
}

}  // namespace kelvo::cli
