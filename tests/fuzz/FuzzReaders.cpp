// Reads damaged songs by all readers that there are.

#include "audio/AudioFile.h"

#include <string_view>

static juce::AudioFormatManager& formats()
{
    static juce::AudioFormatManager manager;

    if (manager.getNumKnownFormats() == 0)
        audiofile::registerFormats (manager);

    return manager;
}

/** The name decides which reader is the first to look at the file. For FFmpeg's any will do. */
static const char* extensionFor (std::string_view content)
{
    const auto mark = content.substr (0, 4);
    return mark == "RIFF"   ? ".wav"
           : mark == "FORM" ? ".aiff"
           : mark == "fLaC" ? ".flac"
           : mark == "OggS" ? ".ogg"
                            : ".mp3";
}

extern "C" int LLVMFuzzerTestOneInput (const uint8_t* bytes, size_t size)
{
    // A header may claim any length, and the memory for it is the machine's business.
    constexpr auto maxSamplesToHold = juce::int64 { 1 } << 24;
    constexpr auto blockSize = 1 << 16;

    const juce::TemporaryFile song (extensionFor ({ reinterpret_cast<const char*> (bytes), size }));
    song.getFile().replaceWithData (bytes, size);
    const auto reader = audiofile::open (formats(), song.getFile());

    if (reader == nullptr)
        return 0;

    if (reader->lengthInSamples * reader->numChannels <= maxSamplesToHold)
    {
        audiofile::readWhole (*reader);
        return 0;
    }

    juce::AudioBuffer<float> block (static_cast<int> (reader->numChannels), blockSize);

    for (const auto start : { juce::int64 {}, reader->lengthInSamples / 2, reader->lengthInSamples - 100 })
        reader->read (&block, 0, blockSize, start, true, true);

    return 0;
}
