#include "audio/AudioFile.h"

#include "support/Signals.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

using signals::Buffer;

class AudioFileTest : public testing::Test
{
protected:
    AudioFileTest() { audiofile::registerFormats (formats); }

    std::unique_ptr<juce::AudioFormatReader> open (const juce::File& file) { return audiofile::open (formats, file); }

    /** @returns the samples of a file, or an empty buffer if it cannot be opened */
    Buffer read (const juce::File& file)
    {
        const auto reader = open (file);
        return reader != nullptr ? audiofile::readWhole (*reader) : Buffer();
    }

    /** @returns a damaged copy of a song */
    template <typename Damage>
    juce::File damaged (const juce::File& song, Damage damage)
    {
        juce::MemoryBlock bytes;
        song.loadFileAsData (bytes);
        damage (bytes);
        const auto file = folder.getChild ("damaged " + song.getFileName());
        file.replaceWithData (bytes.getData(), bytes.getSize());
        return file;
    }

    TemporaryFolder folder;
    juce::AudioFormatManager formats;
    juce::String error;
};

TEST_F (AudioFileTest, ClipsIntegersButNotFloats)
{
    const auto file = folder.getChild ("levels.wav");
    const auto levels = [] (float loudest, float lowest)
    {
        return signals::make (1, 4,
                              [=] (int, int i) { return i == 0   ? 0.0f
                                                        : i == 1 ? -0.5f
                                                        : i == 2 ? loudest
                                                                 : lowest; });
    };

    for (const auto& [bits, loudest, lowest] :
         { std::tuple (16, 32767.0f / 32768.0f, -1.0f), { 24, 8388607.0f / 8388608.0f, -1.0f }, { 32, 1.5f, -7.0f } })
    {
        ASSERT_TRUE (audiofile::writeWav (file, levels (1.5f, -7.0f), 44100.0, bits, error));
        EXPECT_TRUE (signals::identical (read (file), levels (loudest, lowest))) << bits;
    }
}

TEST_F (AudioFileTest, ReplacesAFileButNotAFolder)
{
    const auto buffer = signals::noise (6, 3000);
    const auto file = folder.getChild ("again.wav");
    ASSERT_TRUE (audiofile::writeWav (file, signals::noise (2, 90000), 44100.0, 24, error));
    ASSERT_TRUE (audiofile::writeWav (file, buffer, 44100.0, 32, error));
    EXPECT_TRUE (signals::identical (read (file), buffer));
    ASSERT_TRUE (audiofile::writeWav (file, Buffer (2, 0), 44100.0, 24, error));
    EXPECT_EQ (read (file).getNumChannels(), 2);

    EXPECT_FALSE (audiofile::writeWav (folder.get(), buffer, 44100.0, 24, error));
    EXPECT_EQ (error, "Could not open output file for writing:\n" + folder.get().getFullPathName());
    EXPECT_TRUE (file.exists());

    EXPECT_FALSE (audiofile::writeWav (file, buffer, 44100.0, 20, error));
    EXPECT_EQ (error, "Could not create a 20-bit WAV writer.");
}

TEST_F (AudioFileTest, ReadsNoMoreThanADamagedFileHolds)
{
    const auto file = folder.getChild ("second.wav");
    ASSERT_TRUE (audiofile::writeWav (file, signals::noise (2, 8000), 8000.0, 16, error));
    const auto claimsHours = [] (juce::MemoryBlock& bytes)
    { bytes.copyFrom ("\xf0\xff\xff\xff", static_cast<int> (bytes.getSize()) - 4 * 8000 - 4, 4); };
    EXPECT_TRUE (signals::identical (read (damaged (file, claimsHours)), read (file)));

    const auto isCutOff = [] (juce::MemoryBlock& bytes) { bytes.setSize (bytes.getSize() - 4 * 3000); };
    EXPECT_EQ (read (damaged (file, isCutOff)).getNumSamples(), 5000);
}

class FFmpegAudioFormatTest : public AudioFileTest
{
protected:
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

    /** The signal that tests/audio/encoded/make.py encodes. */
    static double sweepAt (int i)
    {
        return (i % 4000 < 2000 ? 0.5 : 0.1) * std::sin (static_cast<double> (i) * i * 5e-5);
    }

    /** Expects the sweep to start at this sample, not a few samples earlier or later. */
    static void expectSweep (const Buffer& audio, int start)
    {
        const auto squaredError = [&audio] (int lag)
        {
            double sum = 0;
            for (int i = 4; i < numSamples - 4; ++i)
                sum += std::pow (audio.getSample (0, i + lag) - sweepAt (i), 2);
            return sum;
        };

        for (const auto distance : { -3, -2, -1, 1, 2, 3 })
            EXPECT_LT (squaredError (start), 0.2 * squaredError (start + distance)) << distance;
    }

    static constexpr auto numSamples = 20011;
};

TEST_F (FFmpegAudioFormatTest, ReadsTheSamplesThatTheEncoderReceived)
{
    for (const auto* name : { "tagged.mp3", "slow.mp3", "aac.m4a", "fragments.m4a", "alac.m4a", "apple.m4a" })
    {
        SCOPED_TRACE (name);
        const auto reader = open (encoded (name));
        const auto audio = audiofile::readWhole (*reader);
        ASSERT_EQ (audio.getNumSamples(), numSamples);
        EXPECT_EQ (audio.getNumChannels(), 1);
        expectSweep (audio, 0);

        for (const auto start : { 10000, 3, 19000, numSamples - 1000 })
        {
            Buffer part (1, 1000);
            ASSERT_TRUE (reader->read (&part, 0, 1000, start, true, true));
            part.addFrom (0, 0, audio, 0, start, 1000, -1.0f);
            EXPECT_EQ (part.getMagnitude (0, 1000), 0.0f) << "from " << start;
        }
    }

    const auto lossless = read (encoded ("alac.m4a"));
    for (int i = 0; i < numSamples; ++i)
        ASSERT_EQ (lossless.getSample (0, i), static_cast<float> (std::round (sweepAt (i) * 32767.0) / 32768.0)) << i;

    EXPECT_EQ (open (encoded ("slow.mp3"))->sampleRate, 22050.0);
    EXPECT_EQ (read (encoded ("opus.ogg")).getNumSamples(), juce::roundToInt (numSamples * 48.0 / 44.1));
}

TEST_F (FFmpegAudioFormatTest, ReadsAllFramesOfAnUntaggedMp3)
{
    constexpr auto delay = 1105, frame = 1152; // in samples; the delay is the sum of the encoder's and the decoder's

    const auto audio = read (encoded ("untagged.mp3"));
    EXPECT_EQ (audio.getNumSamples(), (numSamples + delay + frame - 1) / frame * frame);
    expectSweep (audio, delay);
}

TEST_F (FFmpegAudioFormatTest, KeepsUndamagedPartsInPlace)
{
    const auto halve = [] (juce::MemoryBlock& bytes) { bytes.setSize (bytes.getSize() / 2); };
    const auto aac = encoded ("aac.m4a"), mp3 = encoded ("tagged.mp3");

    const auto whole = read (aac);
    const auto hole = read (damaged (aac, [] (auto& bytes) { std::memset (bytes.begin() + 2500, 0, 400); }));
    ASSERT_EQ (hole.getNumSamples(), numSamples);
    EXPECT_FALSE (signals::identical (hole, whole));
    for (int i = numSamples - 4000; i < numSamples; ++i) // after the hole, the noise that the decoder adds differs
        ASSERT_NEAR (hole.getSample (0, i), whole.getSample (0, i), 0.02) << i;

    const auto undamaged = read (mp3), half = read (damaged (mp3, halve));
    EXPECT_TRUE (half.getNumSamples() > numSamples / 4 && half.getNumSamples() < numSamples * 3 / 4);
    for (int i = 0; i < half.getNumSamples() - 2 * 1152; ++i)
        ASSERT_EQ (half.getSample (0, i), undamaged.getSample (0, i)) << i;

    const juce::String trailer ("LYRICSBEGINsome words000020LYRICS200");
    const auto addTrailer = [&] (auto& bytes) { bytes.append (trailer.toRawUTF8(), trailer.getNumBytesAsUTF8()); };
    EXPECT_TRUE (signals::identical (read (damaged (mp3, addTrailer)), undamaged));

    EXPECT_EQ (open (damaged (aac, halve)), nullptr);
    EXPECT_EQ (open (damaged (mp3, [] (auto& bytes) { bytes.fillWith (0x55); })), nullptr);
}

TEST_F (FFmpegAudioFormatTest, RecognisesAFileByItsContent)
{
    const auto misnamed = folder.getChild ("song.wav"), list = folder.getChild ("list.mp3");
    ASSERT_TRUE (encoded ("tagged.mp3").copyFileTo (misnamed));
    EXPECT_EQ (read (misnamed).getNumSamples(), numSamples);

    list.replaceWithText ("ffconcat version 1.0\nfile song.wav\n", false, false, "\n");
    const auto workingFolder = juce::File::getCurrentWorkingDirectory();
    folder.get().setAsCurrentWorkingDirectory();
    EXPECT_EQ (open (list), nullptr) << "a playlist has no audio";
    workingFolder.setAsCurrentWorkingDirectory();
}
