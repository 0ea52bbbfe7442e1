#include "core/services/AacFileWriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "tests/core/AudioFileProbe.h"
#include "tests/core/RecorderTestFolder.h"

namespace kelvo {
namespace {

using testing::RecorderTestFolder;

constexpr double oneAacFrameSeconds = 1024.0 / AacFileWriter::sampleRateHz;

// Writes `samples` in blocks that straddle the encoder's 1024-sample frames.
void writeInOddBlocks(AacFileWriter& writer, const std::vector<std::int16_t>& samples) {
    constexpr std::size_t block = 777;
    for (std::size_t start = 0; start < samples.size(); start += block) {
        const std::size_t count = std::min(block, samples.size() - start);
        writer.write(std::span<const std::int16_t>(samples.data() + start, count));
    }
}

TEST(AacFileWriter, FileIsSixteenKilohertzMonoAacWithTheWrittenDurationAndLevel) {
    RecorderTestFolder folder;
    // On a frame boundary, just past one, and a single sample.
    for (const std::size_t sampleCount :
         {std::size_t{16 * 1024}, std::size_t{16000 + 1}, std::size_t{1}}) {
        SCOPED_TRACE(sampleCount);
        const auto path = folder.path() / ("out-" + std::to_string(sampleCount) + ".m4a");
        {
            AacFileWriter writer(path);
            writeInOddBlocks(writer, testing::sineSamples(440, 0.3, 16000, sampleCount));
            EXPECT_EQ(writer.samplesWritten(), static_cast<std::int64_t>(sampleCount));
            writer.finish();
        }
        // (Codec, rate and channels: the recordings `kelvo record` prints, KelvoRecordTest.)
        const auto info = testing::probeAudioFile(path);
        EXPECT_EQ(info.profileName, "LC");
        EXPECT_NEAR(info.durationSeconds, static_cast<double>(sampleCount) / 16000,
                    oneAacFrameSeconds);
        if (sampleCount > 8000) {
            // The tone keeps its level: past the encoder's start-up and before the end.
            const std::vector<float> decoded = testing::decodeFirstChannel(path);
            ASSERT_GT(decoded.size(), 8000u);
            const std::vector<float> middle(decoded.begin() + 2000, decoded.end() - 2000);
            EXPECT_NEAR(testing::rms(middle), 0.3 / std::sqrt(2.0), 0.05);
        }
    }
}

TEST(AacFileWriter, NeverLeavesAnUnreadableFileBehind) {
    RecorderTestFolder folder;
    const auto path = folder.path() / "rec.m4a";
    {
        AacFileWriter abandoned(path);
        abandoned.write(testing::sineSamples(440, 0.3, 16000, 4000));
        EXPECT_TRUE(std::filesystem::exists(path));
    }
    EXPECT_FALSE(std::filesystem::exists(path)) << "an unfinished file has no index";

    {
        AacFileWriter empty(path);
        EXPECT_THROW(empty.finish(), AacFileWriter::Error);
    }
    EXPECT_FALSE(std::filesystem::exists(path)) << "a file without samples cannot be read";

    {
        AacFileWriter finished(path);
        finished.write(testing::sineSamples(440, 0.3, 16000, 4000));
        finished.finish();
        EXPECT_THROW(finished.write(testing::sineSamples(440, 0.3, 16000, 10)), std::logic_error);
        EXPECT_THROW(finished.finish(), std::logic_error);
    }
    EXPECT_EQ(testing::probeAudioFile(path).codecName, "aac");
    std::filesystem::remove(path);

    EXPECT_THROW(AacFileWriter{folder.path() / "missing-folder" / "rec.m4a"}, AacFileWriter::Error);
    EXPECT_TRUE(folder.fileNames().empty());
}

}  // namespace
}  // namespace kelvo
