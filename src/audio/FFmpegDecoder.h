#pragma once

#include "audio/FFmpegLibraries.h"

#include <juce_audio_basics/juce_audio_basics.h>

/** Decodes a file's main audio stream with FFmpeg's libraries, block by block, from its first sample to its last.

    The encoder's delay and padding are left out if the file states them. A packet that the decoder finds damaged
   becomes silence of its length, so that everything else stays in its place.

    It cannot seek: timestamps are exact to the sample in some containers only, and the frames of an MP3 borrow bits
   from earlier ones.
*/
class FFmpegDecoder
{
public:
    /** @param source  read from its start; must outlive the decoder
        @returns null if the source is in no known format, if it has no audio that can be decoded, or if the system
                 has no FFmpeg libraries
    */
    static std::unique_ptr<FFmpegDecoder> open (juce::InputStream& source);

    double getSampleRate() const { return sampleRate; }         /**< in Hz, of all blocks */
    int getNumChannels() const { return channels.nb_channels; } /**< of all blocks */

    /** The block decoded last; after opening, the stream's first. */
    const juce::AudioBuffer<float>& getBlock() const { return block; }

    /** Decodes the next block.

        @returns false if there is none, which leaves the block empty
    */
    bool readBlock();

    /** Counts the samples per channel of the whole stream, and uses the decoder up. An MP3 or MPEG-4 file need not be
        decoded for that.
    */
    juce::int64 countSamples();

    ~FFmpegDecoder();

private:
    enum class Outcome
    {
        frame,
        lostPacket,
        end
    };

    explicit FFmpegDecoder (juce::InputStream& source);

    bool openContainer (const char* flag = nullptr);
    bool openCodec();
    bool readFirstBlock();

    Outcome decode();
    int feedCodec();
    bool readPacket();
    void readAllPackets();
    void markDelay();
    bool configureConverter();
    void convertFrame();
    void fillBlockWithSilence (juce::int64 numSamples);

    juce::int64 countByClock();
    juce::int64 countByEdits();
    juce::int64 countByDecoding();
    juce::int64 packetTicks() const;
    juce::int64 toSamples (juce::int64 ticks) const;
    bool isContainer (const char* name) const;

    const ffmpeg::Functions& lib = ffmpeg::library();
    juce::InputStream& source;
    ffmpeg::Owned<AVIOContext> io;
    ffmpeg::Owned<AVFormatContext> container;
    ffmpeg::Owned<AVCodecContext> codec;
    ffmpeg::Owned<AVPacket> packet;
    ffmpeg::Owned<AVFrame> frame;
    ffmpeg::Owned<SwrContext> converter;

    const AVStream* stream = nullptr; // the container's
    AVChannelLayout channels {};
    int sampleRate = 0;

    // The converter's input format.
    AVChannelLayout frameChannels {};
    int frameRate = 0;
    int frameFormat = -1;

    juce::int64 numTicks = 0;  // the length of the packets so far, by the container's clock
    juce::int64 numToSkip = 0; // samples of the packets so far
    bool hasFailed = false;
    bool isDraining = false;
    juce::AudioBuffer<float> block;

    JUCE_DECLARE_NON_COPYABLE (FFmpegDecoder)
};
