#include "pipeline/StemRenderer.h"

#include "audio/AudioFile.h"
#include "support/Signals.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#if JUCE_LINUX
#include <sys/resource.h>
#endif

using signals::Buffer;

class StemRendererTest : public testing::Test
{
protected:
    StemRendererTest()
    {
        config.bitDepth = 32;
        job.baseName = "~Song"; // not a home folder
        job.outDir = folder.getChild ("out");
        job.outDir.createDirectory();
    }

    void addStem (const juce::String& name, const Buffer& audio, double rate)
    {
        juce::String error;
        job.entries.push_back ({ name, folder.getChild (name + ".wav") });
        ASSERT_TRUE (audiofile::writeWav (job.entries.back().audio, audio, rate, 32, error));
    }

    bool render (std::function<bool()> shouldCancel = [] { return false; })
    {
        StemRenderer renderer (config, job);
        renderer.onProgress = [this] (double fraction, const juce::String& text)
        { progress.push_back (juce::String (fraction, 4) + " " + text); };
        renderer.shouldCancel = std::move (shouldCancel);

        const auto success = renderer.render (message);
        filesWritten = renderer.getFilesWritten();
        return success;
    }

    juce::File output (const juce::String& name) const
    {
        return job.outDir.getChildFile ("./~Song - " + name + ".wav");
    }

    void expectOutput (const juce::String& name, const Buffer& audio, double rate) const
    {
        juce::AudioFormatManager formats;
        audiofile::registerFormats (formats);
        const auto reader = audiofile::open (formats, output (name));
        ASSERT_NE (reader, nullptr);
        EXPECT_TRUE (signals::identical (audiofile::readWhole (*reader), audio));
        EXPECT_EQ (reader->sampleRate, rate);
    }

    TemporaryFolder folder;
    PipelineConfig config;
    StemRenderer::Job job;
    std::vector<juce::String> progress;
    juce::String message;
    int filesWritten = 0;
};

TEST_F (StemRendererTest, KeepsTheRateAndChannelsOfEachFile)
{
    addStem ("drums", signals::noise (1, 3000, 1), 44100.0);
    addStem ("full mix", signals::noise (2, 5000, 2), 48000.0);
    job.statusSuffix = " (detected 120.0 BPM)";
    job.ratio = 1.0000005;

    ASSERT_TRUE (render());
    EXPECT_EQ (filesWritten, 2);
    expectOutput ("drums", signals::noise (1, 3000, 1), 44100.0);
    expectOutput ("full mix", signals::noise (2, 5000, 2), 48000.0);
    EXPECT_EQ (progress[0], "0.6800 Processing drums... (detected 120.0 BPM)");
    EXPECT_EQ (progress[1], "0.8300 Processing full mix... (detected 120.0 BPM)");
}

TEST_F (StemRendererTest, NamesTheFileThatFailsAndKeepsFinishedOnes)
{
    addStem ("drums", signals::noise (1, 3000), 44100.0);
    job.entries.push_back ({ "bass", folder.getChild ("missing.wav") });
    addStem ("vocals", signals::noise (1, 3000), 44100.0);
    output ("bass").replaceWithText ("an older file");

    EXPECT_FALSE (render());
    EXPECT_EQ (message, "Could not read audio file:\n" + folder.getChild ("missing.wav").getFullPathName());
    EXPECT_EQ (filesWritten, 1);
    EXPECT_TRUE (output ("drums").existsAsFile());
    EXPECT_TRUE (output ("bass").existsAsFile());
    EXPECT_FALSE (output ("vocals").exists());
}

TEST_F (StemRendererTest, ChecksForACancellationBeforeEachFile)
{
    for (const auto* const name : { "drums", "bass", "vocals" })
        addStem (name, signals::noise (1, 100), 44100.0);

    for (int allowed = 0; allowed < 3; ++allowed)
    {
        job.outDir.deleteRecursively();
        job.outDir.createDirectory();
        auto asked = 0;

        EXPECT_FALSE (render ([&] { return asked++ == allowed; }));
        EXPECT_EQ (filesWritten, allowed);
        EXPECT_EQ (job.outDir.getNumberOfChildFiles (juce::File::findFiles), allowed);
        EXPECT_EQ (message, "");
    }
}

#if JUCE_LINUX

static double peakMemory()
{
    rusage usage {};
    getrusage (RUSAGE_SELF, &usage);
    return static_cast<double> (usage.ru_maxrss) * 1024.0;
}

TEST_F (StemRendererTest, RefusesASongLongerThanMemoryBeforeItIsRead)
{
    constexpr auto positionOfLength = 100; // in a file with 32-bit samples
    const auto memory = juce::SystemStats::getMemorySizeInMegabytes() * 1024.0 * 1024.0;
    const auto numBytes = static_cast<juce::int64> (memory / 100.0);

    addStem ("long", signals::noise (1, 4), 8000.0);
    juce::FileOutputStream file (job.entries.back().audio);
    file.setPosition (positionOfLength);
    file.writeInt (static_cast<int> (numBytes));
    file.setPosition (numBytes + 1000); // leaves a hole, which takes no space
    file.writeByte (0);
    file.flush();

    job.ratio = 0.25;
    config.sampleRate = 384000;
    const auto before = peakMemory();
    EXPECT_THROW (render(), std::bad_alloc);
    EXPECT_LT (peakMemory() - before, memory / 200.0);
}

#endif
