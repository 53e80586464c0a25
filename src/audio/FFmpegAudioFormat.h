#pragma once

#include "JuceCompatibility.h"

/** Reads by FFmpeg's libraries what they know of MP3, MPEG-4 (AAC, ALAC), Opus, WMA and more.

    A file's samples are those that its encoder was given: the encoder's delay and padding are left out. Reading is
    exact from any sample on, but meant for going forwards: to go back is to decode again from the start.

    A file is known by its content, whatever its extension. So what the basic formats cannot read of their own is read
    here: Opus in Ogg, say, or an MP3 under a wrong name.
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
