#include "core/services/CpuCapabilities.h"

#include <sched.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

namespace kelvo {
namespace {

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool hasWord(std::string_view words, std::string_view word) {
    std::istringstream stream{std::string(words)};
    for (std::string each; stream >> each;) {
        if (each == word) {
            return true;
        }
    }
    return false;
}

int availableCpuCount() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) == 0) {
        return std::max(1, CPU_COUNT(&set));
    }
    return static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
}

}  // namespace

CpuCapabilities CpuCapabilities::fromCpuInfo(std::string_view cpuinfo, int availableCpus) {
    CpuCapabilities cpu;
    int processors = 0;
    std::set<std::pair<std::string, std::string>> physicalCores;
    std::string physicalId;
    bool flagsRead = false;
    std::size_t start = 0;
    while (start < cpuinfo.size()) {
        std::size_t end = cpuinfo.find('\n', start);
        if (end == std::string_view::npos) {
            end = cpuinfo.size();
        }
        const std::string_view line = cpuinfo.substr(start, end - start);
        start = end + 1;
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            continue;
        }
        const std::string_view key = trimmed(line.substr(0, colon));
        const std::string_view value = trimmed(line.substr(colon + 1));
        if (key == "processor") {
            ++processors;
        } else if (key == "physical id") {
            physicalId = value;
        } else if (key == "core id") {
            physicalCores.emplace(physicalId, value);
        } else if (key == "flags" && !flagsRead) {
            flagsRead = true;
            cpu.avx2 = hasWord(value, "avx2");
            cpu.avx512 = hasWord(value, "avx512f");
            cpu.f16c = hasWord(value, "f16c");
        }
    }
    const int listed = physicalCores.empty() ? processors : static_cast<int>(physicalCores.size());
    cpu.cores = std::max(1, std::min(listed > 0 ? listed : availableCpus, availableCpus));
    return cpu;
}

CpuCapabilities CpuCapabilities::detect() {
    std::ifstream file("/proc/cpuinfo");
    std::stringstream text;
    text << file.rdbuf();
    return fromCpuInfo(text.str(), availableCpuCount());
}

std::string CpuCapabilities::description() const {
    std::string text = std::to_string(cores) + (cores == 1 ? " core" : " cores");
    if (!avx2) {
        return text + " without AVX2";
    }
    std::vector<std::string> sets = {"AVX2"};
    if (avx512) {
        sets.emplace_back("AVX-512");
    }
    if (f16c) {
        sets.emplace_back("F16C");
    }
    text += " with " + sets.front();
    for (std::size_t i = 1; i < sets.size(); ++i) {
        text += (i + 1 == sets.size() ? " and " : ", ") + sets[i];
    }
    return text;
}

}  // namespace kelvo
