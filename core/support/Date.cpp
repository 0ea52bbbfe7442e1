#include "core/support/Date.h"

#include <cmath>
#include <ctime>

namespace kelvo {

Date Date::now() { return fromTimePoint(std::chrono::system_clock::now()); }

Date Date::fromTimePoint(std::chrono::system_clock::time_point point) {
    const auto sinceEpoch = std::chrono::duration<double>(point.time_since_epoch());
    return fromUnixSeconds(sinceEpoch.count());
}

std::chrono::system_clock::time_point Date::timePoint() const {
    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::system_clock::duration>(
        std::chrono::duration<double>(unixSeconds()));
    return std::chrono::system_clock::time_point(sinceEpoch);
}

namespace {

std::time_t wholeSeconds(const Date& date) {
    return static_cast<std::time_t>(std::floor(date.unixSeconds()));
}

std::string format(const std::tm& parts, const char* pattern) {
    char buffer[128];
    const std::size_t length = std::strftime(buffer, sizeof buffer, pattern, &parts);
    return std::string(buffer, length);
}

}  // namespace

std::string Date::iso8601() const {
    const std::time_t seconds = wholeSeconds(*this);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    return format(parts, "%Y-%m-%dT%H:%M:%SZ");
}

std::string Date::formatLocal(const char* strftimePattern) const {
    const std::time_t seconds = wholeSeconds(*this);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    return format(parts, strftimePattern);
}

}  // namespace kelvo
