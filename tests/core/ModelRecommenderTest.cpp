// The model suggested for a machine: /proc/cpuinfo read into cores and instruction sets, and the
// rule that picks the most accurate model keeping up with speech, over the built-in catalogue.

#include <gtest/gtest.h>

#include <string>

#include "core/services/ModelRecommender.h"

namespace kelvo {
namespace {

// Two hyper-threads on each of two cores in one package, as the kernel lists them on x86.
constexpr const char* kHyperThreaded = R"(processor	: 0
physical id	: 0
core id		: 0
flags		: fpu sse4_2 avx f16c avx2 fma
processor	: 1
physical id	: 0
core id		: 1
flags		: fpu sse4_2 avx f16c avx2 fma
processor	: 2
physical id	: 0
core id		: 0
processor	: 3
physical id	: 0
core id		: 1
)";

TEST(CpuCapabilitiesTest, CountsPhysicalCoresWithinTheAffinityAndReadsTheFlags) {
    struct Case {
        const char* cpuinfo;
        int availableCpus;
        CpuCapabilities expected;
    };
    const Case cases[] = {
        {kHyperThreaded, 4, {2, true, false, true}},
        {kHyperThreaded, 1, {1, true, false, true}},
        // A virtual machine without topology lines: every processor is a core.
        {"processor : 0\nflags : avx2 avx512f\nprocessor : 1\nprocessor : 2\n",
         8,
         {3, true, true, false}},
        {"", 2, {2, false, false, false}},
    };
    for (const Case& c : cases) {
        const CpuCapabilities cpu = CpuCapabilities::fromCpuInfo(c.cpuinfo, c.availableCpus);
        EXPECT_EQ(cpu.cores, c.expected.cores) << c.cpuinfo;
        EXPECT_EQ(cpu.avx2, c.expected.avx2) << c.cpuinfo;
        EXPECT_EQ(cpu.avx512, c.expected.avx512) << c.cpuinfo;
        EXPECT_EQ(cpu.f16c, c.expected.f16c) << c.cpuinfo;
    }
}

TEST(ModelRecommenderTest, PicksTheMostAccurateModelThatKeepsUpWithSpeech) {
    struct Case {
        CpuCapabilities cpu;
        const char* model;
        const char* reason;
    };
    const Case cases[] = {
        {{2, true, true, true},
         "base",
         "2 cores with AVX2, AVX-512 and F16C: base keeps up with speech"},
        {{4, true, false, true}, "base", "4 cores with AVX2 and F16C: base keeps up with speech"},
        {{6, true, false, true}, "small", "6 cores with AVX2 and F16C: small keeps up with speech"},
        // More cores than whisper.cpp uses well: still not enough for the large encoders.
        {{64, true, true, true},
         "small",
         "64 cores with AVX2, AVX-512 and F16C: small keeps up with speech"},
        {{1, true, false, true}, "tiny", "1 core with AVX2 and F16C: tiny keeps up with speech"},
        {{4, false, false, true}, "tiny", "4 cores without AVX2: tiny keeps up with speech"},
        {{2, true, false, false}, "tiny", "2 cores with AVX2: tiny keeps up with speech"},
        {{1, false, false, false},
         "tiny",
         "1 core without AVX2: even tiny, the fastest model, may lag behind speech"},
    };
    const ModelCatalog catalog = ModelCatalog::builtIn();
    for (const Case& c : cases) {
        const auto recommendation = ModelRecommender::recommend(catalog, "ja", c.cpu);
        ASSERT_TRUE(recommendation) << c.reason;
        EXPECT_EQ(recommendation->entry->name, c.model) << c.reason;
        EXPECT_EQ(recommendation->reason, c.reason);
    }
    EXPECT_FALSE(ModelRecommender::recommend(catalog, "xx", {}));
}

}  // namespace
}  // namespace kelvo
