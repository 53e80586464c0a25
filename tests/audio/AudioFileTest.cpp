#include "audio/AudioFile.h"

#include "support/Signals.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

using signals::Buffer;

class AudioFileTest : public testing::Test
{
protected:
    AudioFileTest() { audiofile::registerFormats (formats); }

    /** @returns the samples of a file; none if it cannot be opened */
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

    /** @returns a WAV file with a second of 16-bit stereo */
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

TEST_F (AudioFileTest, ClipsIntegersButNotFloats)
{
    const auto levels = signals::make (1, 4, [] (int, int i)
                                       { return std::array { 0.0f, -0.5f, 1.5f, -7.0f }[static_cast<size_t> (i)]; });
    const auto file = folder.getChild ("levels.wav");

    for (const auto& [bits, loudest] : { std::pair (16, 32767.0f / 32768.0f), { 24, 8388607.0f / 8388608.0f } })
    {
        ASSERT_TRUE (audiofile::writeWav (file, levels, 44100.0, bits, error));
        EXPECT_TRUE (signals::identical (
            read (file),
            signals::make (1, 4, [level = loudest] (int, int i)
                           { return std::array { 0.0f, -0.5f, level, -1.0f }[static_cast<size_t> (i)]; })));
    }

    ASSERT_TRUE (audiofile::writeWav (file, levels, 44100.0, 32, error));
    EXPECT_TRUE (signals::identical (read (file), levels));
}

TEST_F (AudioFileTest, ReplacesAnOlderFile)
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

TEST_F (AudioFileTest, NamesAFileThatCannotBeWritten)
{
    const auto inTheWay = folder.getChild ("in the way.wav");
    ASSERT_TRUE (inTheWay.getChildFile ("something").create());

    EXPECT_FALSE (audiofile::writeWav (inTheWay, signals::noise (1, 10), 44100.0, 24, error));
    EXPECT_EQ (error, "Could not open output file for writing:\n" + inTheWay.getFullPathName());
    EXPECT_TRUE (inTheWay.getChildFile ("something").exists());

    EXPECT_FALSE (audiofile::writeWav (folder.getChild ("deep.wav"), signals::noise (1, 10), 44100.0, 20, error));
    EXPECT_EQ (error, "Could not create a 20-bit WAV writer.");
}

TEST_F (AudioFileTest, RefusesFilesWithoutReadableAudio)
{
    EXPECT_FALSE (canOpen (folder.getChild ("missing.wav")));
    EXPECT_FALSE (canOpen (folder.get()));
    EXPECT_FALSE (canOpen (writeBytes ("empty.wav", {})));
    EXPECT_FALSE (canOpen (writeBytes ("text.wav", { "Dear diary, today I sampled a kettle.", 36 })));

    // A frame of so many channels exceeds JUCE's read buffer.
    auto crowded = makeWavBytes();
    overwrite (crowded, "fmt ", 10, 4000, 2);
    EXPECT_FALSE (canOpen (writeBytes ("crowded.wav", crowded)));

    auto oddBits = makeWavBytes();
    overwrite (oddBits, "fmt ", 22, 40, 2);
    EXPECT_FALSE (canOpen (writeBytes ("40 bits.wav", oddBits)));
}

TEST_F (AudioFileTest, ReadsNoMoreThanADamagedFileHolds)
{
    auto claimsHours = makeWavBytes();
    overwrite (claimsHours, "data", 4, 0xfffffff0u, 4);
    const auto whole = read (writeBytes ("whole.wav", makeWavBytes()));
    EXPECT_TRUE (signals::identical (read (writeBytes ("hours.wav", claimsHours)), whole));

    // Tags nested too deep for the stack, and a claim of two gigabytes of loops.
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
