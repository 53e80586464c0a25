#pragma once

#include <juce_core/juce_core.h>

/** A WAV file's header and samples, read by hand. */
struct WavHeader
{
    explicit WavHeader (const juce::File& file)
    {
        file.loadFileAsData (bytes);

        if (text (0) != "RIFF" || text (8) != "WAVE" || number (4, 4) != bytes.getSize() - 8)
            return;

        for (size_t at = 12; at + 8 <= bytes.getSize();)
        {
            const auto size = number (at + 4, 4);

            if (text (at) == "fmt ")
            {
                const auto tag = number (at + 8, 2);
                format = tag == 0xfffe ? number (at + 32, 2) : tag;
                numChannels = number (at + 10, 2);
                sampleRate = number (at + 12, 4);
                bitsPerSample = number (at + 22, 2);
                isValid = number (at + 20, 2) == numChannels * bitsPerSample / 8
                          && number (at + 16, 4) == sampleRate * numChannels * bitsPerSample / 8;
            }
            else if (text (at) == "data")
            {
                dataStart = at + 8;
                numFrames = isValid ? size / (numChannels * bitsPerSample / 8) : 0;
            }

            at += 8 + size + (size & 1);
        }
    }

    /** As the file has it: an integer of bitsPerSample, or the bits of a float. */
    juce::int64 sample (size_t frame, size_t channel) const
    {
        const auto raw = number (dataStart + (frame * numChannels + channel) * bitsPerSample / 8, bitsPerSample / 8);
        const auto isNegative = format == 1 && (raw >> (bitsPerSample - 1)) != 0;
        return static_cast<juce::int64> (raw) - (isNegative ? juce::int64 { 1 } << bitsPerSample : 0);
    }

    size_t number (size_t at, size_t size) const
    {
        size_t value = 0;

        for (size_t i = 0; i < size && at + i < bytes.getSize(); ++i)
            value |= static_cast<size_t> (static_cast<juce::uint8> (bytes[static_cast<int> (at + i)])) << (8 * i);

        return value;
    }

    juce::String text (size_t at) const
    {
        return at + 4 <= bytes.getSize() ? juce::String (bytes.begin() + at, 4) : juce::String();
    }

    juce::MemoryBlock bytes;
    bool isValid = false;
    size_t format = 0; /**< 1 for integers, 3 for floats */
    size_t numChannels = 0, sampleRate = 0, bitsPerSample = 0, dataStart = 0, numFrames = 0;
};
