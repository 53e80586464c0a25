#include "audio/AudioFile.h"

#include "JuceCompatibility.h"
#include "audio/LargeBuffer.h"
#include "audio/MemoryLimit.h"

namespace audiofile
{

constexpr int maxChannels = 64;

/** How many samples of a PCM file's claimed length lie within the file. */
static juce::int64 samplesHeld (juce::MemoryMappedAudioFormatReader& mapped, const juce::File& file)
{
    if (mapped.mapEntireFile())
        return mapped.getMappedSection().getEnd();

    // Nothing to map, or a file system that cannot: an estimate that takes the header for audio.
    return file.getSize() * 8 / (static_cast<juce::int64> (mapped.numChannels) * mapped.bitsPerSample);
}

static std::unique_ptr<juce::MemoryMappedAudioFormatReader> createMapped (juce::AudioFormatManager& formats,
                                                                          const juce::File& file)
{
    auto* const format = formats.findFormatForFileExtension (file.getFileExtension());
    return std::unique_ptr<juce::MemoryMappedAudioFormatReader> (
        format != nullptr ? format->createMemoryMappedReader (file) : nullptr);
}

std::unique_ptr<juce::AudioFormatReader> open (juce::AudioFormatManager& formats, const juce::File& file)
{
    std::unique_ptr<juce::AudioFormatReader> reader (formats.createReaderFor (file));

    if (reader == nullptr || reader->numChannels > maxChannels)
        return nullptr;

    // Only uncompressed audio can be mapped, and only there does the length follow from the size.
    if (const auto mapped = createMapped (formats, file))
    {
        if (reader->bitsPerSample % 8 != 0)
            return nullptr;

        reader->lengthInSamples = juce::jmin (reader->lengthInSamples, samplesHeld (*mapped, file));
    }

    reader->lengthInSamples = juce::jmax (juce::int64{}, reader->lengthInSamples);
    return reader;
}

juce::AudioBuffer<float> readWhole (juce::AudioFormatReader& reader)
{
    const auto length = static_cast<int> (juce::jmin (reader.lengthInSamples, maxSamples));
    requireMemoryFor (static_cast<double> (length) * reader.numChannels);

    auto buffer = makeLargeBuffer (static_cast<int> (reader.numChannels), length);
    reader.read (&buffer, 0, length, 0, true, true);
    return buffer;
}

bool writeWav (const juce::File& file, const juce::AudioBuffer<float>& buffer, double sampleRate, int bitDepth,
               juce::String& error)
{
    constexpr auto streamBufferSize = 32768;

    file.deleteFile();
    std::unique_ptr<juce::OutputStream> stream = file.createOutputStream (streamBufferSize);

    if (stream == nullptr)
    {
        error = "Could not open output file for writing:\n" + file.getFullPathName();
        return false;
    }

    using Options = compat::AudioFormatWriterOptions;
    const auto options =
        Options{}
            .withSampleRate (sampleRate)
            .withNumChannels (buffer.getNumChannels())
            .withBitsPerSample (bitDepth)
            .withSampleFormat (bitDepth == 32 ? Options::SampleFormat::floatingPoint : Options::SampleFormat::integral);

    compat::WavAudioFormat wav;
    const auto writer = wav.createWriterFor (stream, options);

    if (writer == nullptr)
    {
        error = "Could not create a " + juce::String (bitDepth) + "-bit WAV writer.";
        return false;
    }

    writer->writeFromAudioSampleBuffer (buffer, 0, buffer.getNumSamples());
    writer->flush();
    return true;
}

} // namespace audiofile
