#pragma once

#include <string>
#include <string_view>

namespace kelvo {

/// What this machine's processor offers speech decoding: the physical cores this process may run
/// on and the vector instruction sets ggml's CPU back end uses (AVX2, AVX-512 Foundation, F16C).
/// Hyper-threads are not counted: whisper.cpp's matrix work saturates a core's vector units with
/// one thread. Read from /proc/cpuinfo and the process's CPU affinity; a plain value.
struct CpuCapabilities {
    int cores = 1;
    bool avx2 = false;
    bool avx512 = false;
    bool f16c = false;

    /// From the text of /proc/cpuinfo: cores are the distinct (physical id, core id) pairs, or
    /// the "processor" entries where the kernel lists no topology (virtual machines, non-x86),
    /// capped at `availableCpus` (what the affinity mask allows); the instruction sets come from
    /// the first "flags" line. At least one core.
    static CpuCapabilities fromCpuInfo(std::string_view cpuinfo, int availableCpus);

    /// This machine, now. Reads /proc/cpuinfo; without it, one core per available CPU and no
    /// instruction sets known.
    static CpuCapabilities detect();

    /// "4 cores with AVX2 and F16C", "1 core without AVX2": how the reasons name the machine.
    std::string description() const;
};

}  // namespace kelvo
