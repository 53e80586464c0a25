#include "pipeline/StemRenderer.h"

#include "audio/AudioFile.h"
#include "support/Signals.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#if JUCE_LINUX
#include <sys/resource.h>
#endif

class StemRendererTest : public testing::Test
{
protected:
    StemRendererTest()
    {
        juce::String error;
        audiofile::writeWav (song, signals::noise (1, 4), 8000.0, 32, error);
        job.outDir = folder.get();
        job.entries = { { "drums", song }, { "bass", song }, { "vocals", song } };
    }

    /** @returns the number of files written */
    int render (std::function<bool()> shouldCancel)
    {
        StemRenderer renderer (config, job);
        renderer.onProgress = [] (double, const juce::String&) {};
        renderer.shouldCancel = std::move (shouldCancel);
        juce::String message;
        EXPECT_FALSE (renderer.render (message));
        EXPECT_EQ (message, "");
        return renderer.getFilesWritten();
    }

    TemporaryFolder folder;
    const juce::File song = folder.getChild ("song.wav");
    PipelineConfig config;
    StemRenderer::Job job;
};

TEST_F (StemRendererTest, ChecksForACancellationBeforeEachFile)
{
    for (auto allowed = 0; allowed < 3; ++allowed)
        EXPECT_EQ (render ([asked = 0, allowed]() mutable { return asked++ == allowed; }), allowed);
}

#if JUCE_LINUX

TEST_F (StemRendererTest, RefusesASongLongerThanMemoryBeforeItIsRead)
{
    constexpr auto positionOfLength = 100; // in a file with 32-bit samples
    const auto memory = juce::SystemStats::getMemorySizeInMegabytes() * 1024.0 * 1024.0;
    const auto numBytes = static_cast<juce::int64> (memory / 100.0);
    const auto peakMemory = []
    {
        rusage usage {};
        getrusage (RUSAGE_SELF, &usage);
        return static_cast<double> (usage.ru_maxrss) * 1024.0;
    };

    juce::FileOutputStream file (song);
    file.setPosition (positionOfLength);
    file.writeInt (static_cast<int> (numBytes));
    file.setPosition (numBytes + 1000); // leaves a hole, which takes no space
    file.writeByte (0);
    file.flush();

    job.ratio = 0.25;
    config.sampleRate = 384000;
    const auto before = peakMemory();
    EXPECT_THROW (render ([] { return false; }), std::bad_alloc);
    EXPECT_LT (peakMemory() - before, memory / 200.0);
}

#endif
