#include "audio/AudioFile.h"

#include "support/Signals.h"
#include "support/TemporaryFolder.h"
#include "support/WavHeader.h"

#include <gtest/gtest.h>

#include <bit>

using signals::Buffer;

class AudioFileTest : public testing::Test
{
protected:
    AudioFileTest() { audiofile::registerFormats (formats); }

    /** The samples of a file, or none if it cannot be opened. */
    Buffer read (const juce::File& file)
    {
        const auto reader = audiofile::open (formats, file);
        return reader != nullptr ? audiofile::readWhole (*reader) : Buffer();
    }

    bool canOpen (const juce::File& file) { return audiofile::open (formats, file) != nullptr; }

    juce::File writeBytes (const juce::String& name, const juce::MemoryBlock& bytes)
    {
        const auto file = folder.getChild (name);
        file.replaceWithData (bytes.getData(), bytes.getSize());
        return file;
    }

    /** A second of 16-bit stereo whose header fields can be overwritten. */
    juce::MemoryBlock makeWavBytes()
    {
        audiofile::writeWav (folder.getChild ("second.wav"), signals::noise (2, 8000), 8000.0, 16, error);
        juce::MemoryBlock bytes;
        folder.getChild ("second.wav").loadFileAsData (bytes);
        return bytes;
    }

    static void overwrite (juce::MemoryBlock& bytes, const char* chunk, size_t offset, juce::uint32 value, size_t size)
    {
        for (size_t at = 12; at + 4 < bytes.getSize(); ++at)
            if (std::memcmp (bytes.begin() + at, chunk, 4) == 0)
            {
                std::memcpy (bytes.begin() + at + offset, &value, size);
                return;
            }
    }

    TemporaryFolder folder;
    juce::AudioFormatManager formats;
    juce::String error;
};

TEST_F (AudioFileTest, WritesHeadersThatSayWhatIsThere)
{
    for (const auto bits : { 16, 24, 32 })
        for (const auto channels : { 1, 2, 6 })
            for (const auto rate : { 8000, 44100, 48000, 192000 })
            {
                const auto file = folder.getChild ("header.wav");
                ASSERT_TRUE (audiofile::writeWav (file, signals::noise (channels, 1001), rate, bits, error));

                const WavHeader header (file);
                EXPECT_TRUE (header.isValid);
                EXPECT_EQ (header.format, bits == 32 ? 3u : 1u);
                EXPECT_EQ (header.numChannels, static_cast<size_t> (channels));
                EXPECT_EQ (header.sampleRate, static_cast<size_t> (rate));
                EXPECT_EQ (header.bitsPerSample, static_cast<size_t> (bits));
                EXPECT_EQ (header.numFrames, 1001u);
            }
}

TEST_F (AudioFileTest, IntegersClipAndFloatsDoNot)
{
    const auto buffer = signals::make (1, 4, [] (int, int i)
                                       { return std::array { 0.0f, -0.5f, 1.5f, -7.0f }[static_cast<size_t> (i)]; });
    const auto file = folder.getChild ("levels.wav");

    ASSERT_TRUE (audiofile::writeWav (file, buffer, 44100.0, 16, error));
    EXPECT_EQ (WavHeader (file).sample (0, 0), 0);
    EXPECT_NEAR (static_cast<double> (WavHeader (file).sample (1, 0)), -16384, 1);
    EXPECT_EQ (WavHeader (file).sample (2, 0), 32767);
    EXPECT_EQ (WavHeader (file).sample (3, 0), -32768);

    ASSERT_TRUE (audiofile::writeWav (file, buffer, 44100.0, 24, error));
    EXPECT_EQ (WavHeader (file).sample (2, 0), 8388607);
    EXPECT_EQ (WavHeader (file).sample (3, 0), -8388608);

    ASSERT_TRUE (audiofile::writeWav (file, buffer, 44100.0, 32, error));
    EXPECT_EQ (std::bit_cast<float> (static_cast<juce::uint32> (WavHeader (file).sample (2, 0))), 1.5f);
    EXPECT_EQ (std::bit_cast<float> (static_cast<juce::uint32> (WavHeader (file).sample (3, 0))), -7.0f);
}

TEST_F (AudioFileTest, WhatIsWrittenIsReadBack)
{
    const auto buffer = signals::noise (6, 3000);
    const auto file = folder.getChild ("again.wav");

    ASSERT_TRUE (audiofile::writeWav (file, signals::noise (2, 90000), 44100.0, 24, error));
    ASSERT_TRUE (audiofile::writeWav (file, buffer, 44100.0, 32, error));
    EXPECT_TRUE (signals::identical (read (file), buffer));

    ASSERT_TRUE (audiofile::writeWav (file, Buffer (2, 0), 44100.0, 24, error));
    EXPECT_EQ (read (file).getNumSamples(), 0);
    EXPECT_EQ (read (file).getNumChannels(), 2);
}

TEST_F (AudioFileTest, SaysWhatCouldNotBeWritten)
{
    const auto inTheWay = folder.getChild ("in the way.wav");
    ASSERT_TRUE (inTheWay.getChildFile ("something").create());

    EXPECT_FALSE (audiofile::writeWav (inTheWay, signals::noise (1, 10), 44100.0, 24, error));
    EXPECT_EQ (error, "Could not open output file for writing:\n" + inTheWay.getFullPathName());
    EXPECT_TRUE (inTheWay.getChildFile ("something").exists());

    EXPECT_FALSE (audiofile::writeWav (folder.getChild ("deep.wav"), signals::noise (1, 10), 44100.0, 20, error));
    EXPECT_EQ (error, "Could not create a 20-bit WAV writer.");
}

TEST_F (AudioFileTest, RefusesWhatIsNoAudio)
{
    EXPECT_FALSE (canOpen (folder.getChild ("missing.wav")));
    EXPECT_FALSE (canOpen (folder.get()));
    EXPECT_FALSE (canOpen (writeBytes ("empty.wav", {})));
    EXPECT_FALSE (canOpen (writeBytes ("text.wav", { "Dear diary, today I sampled a kettle.", 36 })));

    // A frame of this many channels is larger than the reader's own block.
    auto crowded = makeWavBytes();
    overwrite (crowded, "fmt ", 10, 4000, 2);
    EXPECT_FALSE (canOpen (writeBytes ("crowded.wav", crowded)));

    auto oddBits = makeWavBytes();
    overwrite (oddBits, "fmt ", 22, 40, 2);
    EXPECT_FALSE (canOpen (writeBytes ("40 bits.wav", oddBits)));
}

TEST_F (AudioFileTest, ReadsWhatADamagedFileHolds)
{
    auto claimsHours = makeWavBytes();
    overwrite (claimsHours, "data", 4, 0xfffffff0u, 4);
    const auto whole = read (writeBytes ("whole.wav", makeWavBytes()));
    EXPECT_TRUE (signals::identical (read (writeBytes ("hours.wav", claimsHours)), whole));

    // Tags nested deeper than a stack could follow, and two gigabytes of loops.
    const auto nested = juce::String::repeatedString ("<a>", 200000);
    auto tagged = makeWavBytes();
    std::memset (tagged.begin() + 4, 0x7f, 4);
    tagged.append ("iXML\xc0\x27\x09\0", 8);
    tagged.append (nested.toRawUTF8(), 600000);
    tagged.append ("smpl\0\0\0\x7f", 8);
    EXPECT_TRUE (signals::identical (read (writeBytes ("tagged.wav", tagged)), whole));

    auto cutOff = makeWavBytes();
    cutOff.setSize (cutOff.getSize() - 4 * 3000);
    EXPECT_EQ (read (writeBytes ("cut off.wav", cutOff)).getNumSamples(), 5000);

    auto claimsWithoutAny = makeWavBytes();
    claimsWithoutAny.setSize (claimsWithoutAny.getSize() - 4 * 8000);
    EXPECT_LT (read (writeBytes ("header.wav", claimsWithoutAny)).getNumSamples(), 100);
}
