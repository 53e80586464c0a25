#include "Song.h"

#include "audio/AudioFile.h"

#include <stdexcept>

Song loadMinuteOf (const juce::File& file)
{
    juce::AudioFormatManager formats;
    audiofile::registerFormats (formats);
    const auto reader = audiofile::open (formats, file);

    if (reader == nullptr || reader->lengthInSamples == 0)
        throw std::runtime_error ("Cannot read " + file.getFullPathName().toStdString());

    const auto source = audiofile::readWhole (*reader);
    const auto length = juce::roundToInt (60.0 * reader->sampleRate);
    Song song { juce::AudioBuffer<float> (source.getNumChannels(), length), reader->sampleRate };

    for (int start = 0; start < length; start += source.getNumSamples())
        for (int channel = 0; channel < source.getNumChannels(); ++channel)
            song.audio.copyFrom (channel, start, source, channel, 0,
                                 juce::jmin (source.getNumSamples(), length - start));

    return song;
}
