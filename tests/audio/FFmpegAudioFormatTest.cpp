#include "audio/AudioFile.h"

#include "support/Signals.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

using signals::Buffer;

constexpr auto numSamples = 20011;

class FFmpegAudioFormatTest : public testing::Test
{
protected:
    FFmpegAudioFormatTest() { audiofile::registerFormats (formats); }

    void SetUp() override
    {
#if ! KELVANE_HAS_FFMPEG
        GTEST_SKIP() << "The development files of FFmpeg's libraries were missing when this was built.";
#endif
    }

    static juce::File encoded (const juce::String& name)
    {
        return juce::File (KELVANE_ENCODED_SONGS).getChildFile (name);
    }

    std::unique_ptr<juce::AudioFormatReader> open (const juce::File& file) { return audiofile::open (formats, file); }

    Buffer read (const juce::File& file)
    {
        const auto reader = open (file);
        return reader != nullptr ? audiofile::readWhole (*reader) : Buffer();
    }

    /** Makes a damaged copy of an encoded song. */
    juce::File damaged (const juce::String& name, const std::function<void (juce::MemoryBlock&)>& damage)
    {
        juce::MemoryBlock bytes;
        encoded (name).loadFileAsData (bytes);
        damage (bytes);
        const auto file = folder.getChild ("damaged " + name);
        file.replaceWithData (bytes.getData(), bytes.getSize());
        return file;
    }

    TemporaryFolder folder;
    juce::AudioFormatManager formats;
};

/** The signal that tests/audio/encoded/make.py encodes. */
static double sweepAt (int i)
{
    return (i % 4000 < 2000 ? 0.5 : 0.1) * std::sin (static_cast<double> (i) * i * 5e-5);
}

static double squaredError (const Buffer& audio, int lag)
{
    double sum = 0;

    for (int i = 4; i < numSamples - 4; ++i)
        sum += std::pow (audio.getSample (0, i + lag) - sweepAt (i), 2);

    return sum;
}

static void expectSweepAt (const Buffer& audio, int lag)
{
    for (const auto distance : { -3, -2, -1, 1, 2, 3 })
        EXPECT_LT (squaredError (audio, lag), 0.2 * squaredError (audio, lag + distance)) << distance;
}

TEST_F (FFmpegAudioFormatTest, ReadsTheSamplesThatTheEncoderReceived)
{
    for (const auto* name : { "tagged.mp3", "slow.mp3", "aac.m4a", "fragments.m4a", "alac.m4a", "apple.m4a" })
    {
        SCOPED_TRACE (name);
        const auto audio = read (encoded (name));
        ASSERT_EQ (audio.getNumSamples(), numSamples);
        EXPECT_EQ (audio.getNumChannels(), 1);

        // Lags of up to three samples read beyond both ends.
        Buffer spacious (1, numSamples + 8);
        spacious.clear();
        spacious.copyFrom (0, 0, audio, 0, 0, numSamples);
        expectSweepAt (spacious, 0);
    }

    const auto lossless = read (encoded ("alac.m4a"));
    for (int i = 0; i < numSamples; ++i)
        ASSERT_EQ (lossless.getSample (0, i), static_cast<float> (std::round (sweepAt (i) * 32767.0) / 32768.0)) << i;

    EXPECT_EQ (open (encoded ("slow.mp3"))->sampleRate, 22050.0);
    EXPECT_EQ (read (encoded ("opus.ogg")).getNumSamples(), juce::roundToInt (numSamples * 48.0 / 44.1));
}

TEST_F (FFmpegAudioFormatTest, ReadsAllFramesOfAnUntaggedMp3)
{
    constexpr auto decoderAndEncoderDelay = 1105;
    constexpr auto frame = 1152;

    const auto audio = read (encoded ("untagged.mp3"));
    EXPECT_EQ (audio.getNumSamples() % frame, 0);
    ASSERT_GE (audio.getNumSamples(), numSamples + decoderAndEncoderDelay);
    EXPECT_LT (audio.getNumSamples(), numSamples + decoderAndEncoderDelay + frame);
    expectSweepAt (audio, decoderAndEncoderDelay);
}

TEST_F (FFmpegAudioFormatTest, ReadsTheSameSamplesFromAnyPosition)
{
    for (const auto* name : { "tagged.mp3", "untagged.mp3", "aac.m4a", "alac.m4a", "opus.ogg" })
    {
        const auto reader = open (encoded (name));
        const auto whole = audiofile::readWhole (*reader);

        for (const auto start : { 10000, 3, 0, 19000, 1151, 1152, whole.getNumSamples() - 10 })
        {
            SCOPED_TRACE (juce::String (name) + " from " + juce::String (start));
            Buffer part (1, 1000);
            ASSERT_TRUE (reader->read (&part, 0, 1000, start, true, true));

            auto expected = Buffer (1, 1000);
            expected.clear();
            expected.copyFrom (0, 0, whole, 0, start, juce::jmin (1000, whole.getNumSamples() - start));
            EXPECT_TRUE (signals::identical (part, expected));
        }
    }
}

TEST_F (FFmpegAudioFormatTest, KeepsUndamagedPartsInPlace)
{
    const auto whole = read (encoded ("aac.m4a"));
    const auto hole = read (damaged ("aac.m4a", [] (auto& bytes) { std::memset (bytes.begin() + 2500, 0, 400); }));
    ASSERT_EQ (hole.getNumSamples(), numSamples);
    EXPECT_FALSE (signals::identical (hole, whole));

    // After the hole, the decoder's artificial noise differs.
    for (int i = numSamples - 4000; i < numSamples; ++i)
        ASSERT_NEAR (hole.getSample (0, i), whole.getSample (0, i), 0.02) << i;

    const auto mp3 = read (encoded ("tagged.mp3"));
    const auto half = read (damaged ("tagged.mp3", [] (auto& bytes) { bytes.setSize (bytes.getSize() / 2); }));
    ASSERT_GT (half.getNumSamples(), numSamples / 4);
    EXPECT_LT (half.getNumSamples(), numSamples * 3 / 4);

    for (int i = 0; i < half.getNumSamples() - 2 * 1152; ++i)
        ASSERT_EQ (half.getSample (0, i), mp3.getSample (0, i)) << i;

    EXPECT_EQ (open (damaged ("aac.m4a", [] (auto& bytes) { bytes.setSize (bytes.getSize() / 2); })), nullptr);
    EXPECT_EQ (open (damaged ("tagged.mp3", [] (auto& bytes) { bytes.fillWith (0x55); })), nullptr);
}

TEST_F (FFmpegAudioFormatTest, IgnoresDataAfterAnMp3)
{
    for (const auto* trailer : { "\r\n", "LYRICSBEGINsome words000020LYRICS200" })
    {
        const auto file = damaged ("tagged.mp3", [&] (auto& bytes) { bytes.append (trailer, std::strlen (trailer)); });
        EXPECT_EQ (read (file).getNumSamples(), numSamples);
    }
}

TEST_F (FFmpegAudioFormatTest, RecognizesAFileByItsContent)
{
    const auto misnamed = folder.getChild ("song.wav");
    ASSERT_TRUE (encoded ("tagged.mp3").copyFileTo (misnamed));
    EXPECT_TRUE (signals::identical (read (misnamed), read (encoded ("tagged.mp3"))));

    const auto list = folder.getChild ("list.mp3");
    ASSERT_TRUE (list.replaceWithText ("ffconcat version 1.0\nfile '" + encoded ("aac.m4a").getFullPathName() + "'\n",
                                       false, false, "\n"));
    EXPECT_EQ (open (list), nullptr) << "a playlist has no audio";
}
