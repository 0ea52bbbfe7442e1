#pragma once

#include <chrono>
#include <string>

namespace kelvo {

/// A point in time, kept as seconds since 2001-01-01 00:00:00 UTC — the form the JSON files use —
/// so that a date read from a file and written back is bit-for-bit the same number.
struct Date {
    double secondsSinceReferenceDate = 0;

    /// Seconds between the Unix epoch and 2001-01-01 00:00:00 UTC.
    static constexpr double kReferenceDateUnixSeconds = 978307200.0;

    static Date now();
    static Date fromUnixSeconds(double unixSeconds) {
        return Date{unixSeconds - kReferenceDateUnixSeconds};
    }
    static Date fromTimePoint(std::chrono::system_clock::time_point point);

    double unixSeconds() const { return secondsSinceReferenceDate + kReferenceDateUnixSeconds; }
    std::chrono::system_clock::time_point timePoint() const;

    /// Internet date-time in UTC, whole seconds, e.g. "2025-03-04T05:06:07Z".
    std::string iso8601() const;
    /// The date formatted with a strftime pattern in the process's local time zone.
    std::string formatLocal(const char* strftimePattern) const;

    friend bool operator==(const Date&, const Date&) = default;
    friend auto operator<=>(const Date&, const Date&) = default;
};

}  // namespace kelvo
