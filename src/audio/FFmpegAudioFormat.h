#pragma once

#include "JuceCompatibility.h"

/** Reads MP3, MPEG-4 (AAC, ALAC), Opus, WMA and other formats through FFmpeg's libraries.

    Encoder delay and padding are removed, so the reader returns the samples that the encoder received. Reading is
    sample-accurate at any position, but going backwards is slow, because it decodes the file again from its start.

    Files are recognised by content, not by extension. This format therefore also reads files that the basic formats
    cannot, such as Opus in Ogg or an MP3 with a wrong extension.
*/
class FFmpegAudioFormat : public compat::ReadOnlyAudioFormat
{
public:
    FFmpegAudioFormat();

    bool canHandleFile (const juce::File&) override { return true; }
    juce::AudioFormatReader* createReaderFor (juce::InputStream* source, bool deleteStreamIfOpeningFails) override;

    juce::Array<int> getPossibleSampleRates() override { return {}; }
    juce::Array<int> getPossibleBitDepths() override { return {}; }
    bool canDoStereo() override { return true; }
    bool canDoMono() override { return true; }
    bool isCompressed() override { return true; }
};
