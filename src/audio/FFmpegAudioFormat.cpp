#include "audio/FFmpegAudioFormat.h"

#include "audio/FFmpegDecoder.h"

namespace
{

constexpr auto nameOfFormat = "FFmpeg";

class FFmpegReader : public juce::AudioFormatReader
{
public:
    explicit FFmpegReader (juce::InputStream* source) : AudioFormatReader (source, nameOfFormat)
    {
        usesFloatingPointData = true;
        bitsPerSample = 32;
    }

    /** @returns false if the file holds no readable audio */
    bool open()
    {
        restart();

        if (decoder == nullptr)
            return false;

        sampleRate = decoder->getSampleRate();
        numChannels = static_cast<unsigned int> (decoder->getNumChannels());
        lengthInSamples = decoder->countSamples();
        restart();
        return decoder != nullptr;
    }

    bool readSamples (int* const* destChannels, int numDestChannels, int startOffset, juce::int64 startSample,
                      int numSamples) override
    {
        clearSamplesBeyondAvailableLength (destChannels, numDestChannels, startOffset, startSample, numSamples,
                                           lengthInSamples);

        while (numSamples > 0)
        {
            const auto numRead = readFromBlock (destChannels, numDestChannels, startOffset, startSample, numSamples);
            startOffset += numRead;
            startSample += numRead;
            numSamples -= numRead;
        }

        return true;
    }

private:
    void restart()
    {
        // Delete the old decoder before opening the new one, because both read the same stream.
        decoder.reset();
        decoder = FFmpegDecoder::open (*input);
        blockStart = 0;
    }

    int numInBlock() const { return decoder != nullptr ? decoder->getBlock().getNumSamples() : 0; }

    /** @returns false if the audio ends before this sample, as it may in a damaged file */
    bool goTo (juce::int64 sample)
    {
        if (sample < blockStart)
            restart();

        while (numInBlock() > 0 && sample >= blockStart + numInBlock())
        {
            blockStart += numInBlock();
            decoder->readBlock();
        }

        return numInBlock() > 0;
    }

    /** @returns the number of samples written, from 1 to the number requested */
    int readFromBlock (int* const* destChannels, int numDestChannels, int startOffset, juce::int64 startSample,
                       int numSamples)
    {
        const auto hasAudio = goTo (startSample);
        const auto offset = static_cast<int> (startSample - blockStart);
        const auto numToRead = hasAudio ? juce::jmin (numSamples, numInBlock() - offset) : numSamples;

        for (int channel = 0; channel < numDestChannels; ++channel)
        {
            if (destChannels[channel] == nullptr)
                continue;

            auto* const dest = reinterpret_cast<float*> (destChannels[channel] + startOffset);

            if (hasAudio && channel < static_cast<int> (numChannels))
                juce::FloatVectorOperations::copy (dest, decoder->getBlock().getReadPointer (channel, offset),
                                                   numToRead);
            else
                juce::FloatVectorOperations::clear (dest, numToRead);
        }

        return numToRead;
    }

    std::unique_ptr<FFmpegDecoder> decoder;
    juce::int64 blockStart = 0; // the first sample of the decoder's block

    JUCE_DECLARE_NON_COPYABLE (FFmpegReader)
};

} // namespace

FFmpegAudioFormat::FFmpegAudioFormat() : ReadOnlyAudioFormat (nameOfFormat, ".mp3 .m4a") {}

juce::AudioFormatReader* FFmpegAudioFormat::createReaderFor (juce::InputStream* source, bool deleteStreamIfOpeningFails)
{
    auto reader = std::make_unique<FFmpegReader> (source);

    if (reader->open())
        return reader.release();

    if (! deleteStreamIfOpeningFails)
        reader->input = nullptr;

    return nullptr;
}
