#pragma once

#include <juce_core/juce_core.h>

#include <memory>

/** Reads a WAV or AIFF file as if it held nothing but its format and its audio data.

    JUCE's decoders parse every tag, marker and loop in a file and trust most of what they read. Kelvane uses none of
    these, so this stream leaves them out and builds a new header, whose lengths never exceed the data in the file.
*/
class BarePcmStream : public juce::InputStream
{
public:
    /** @returns null if the file is neither WAV nor AIFF, if its format or its audio data is missing, or if JUCE's
        decoders cannot handle its format safely: no channels or more than audiofile::maxChannels, or in a WAV file no
        sample rate or more than 64 bits per sample
    */
    static std::unique_ptr<BarePcmStream> open (const juce::File& file);

    juce::int64 getTotalLength() override { return static_cast<juce::int64> (header.getSize()) + soundLength; }
    juce::int64 getPosition() override { return position; }
    bool isExhausted() override { return position >= getTotalLength(); }
    bool setPosition (juce::int64 newPosition) override;
    int read (void* dest, int maxBytes) override;

private:
    explicit BarePcmStream (const juce::File& fileToRead) : file (fileToRead) {}

    bool openWav();
    bool openAiff();

    juce::FileInputStream file;
    juce::MemoryBlock header;
    juce::int64 soundStart = 0, soundLength = 0; // bytes, in the file
    juce::int64 position = 0;
};
