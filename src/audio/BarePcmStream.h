#pragma once

#include <juce_core/juce_core.h>

#include <memory>

/** A WAV or AIFF file reduced to its format and its sound, behind a header written here.

    JUCE's decoders parse every tag, marker and loop they find and trust most of what these claim. Kelvane uses none of
    them, so the decoders never see them. The lengths in the header are those that the file really has room for.
*/
class BarePcmStream : public juce::InputStream
{
public:
    /** @returns null if the file is neither WAV nor AIFF, if its format or its sound is missing, or if its format is
       one that JUCE's decoders cannot handle safely: more than audiofile::maxChannels channels, no sample rate, or more
       than 64 bits a sample
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
