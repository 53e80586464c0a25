#pragma once

#include "audio/FFmpegLibraries.h"

#include <juce_audio_basics/juce_audio_basics.h>

/** Decodes a file's main audio stream with FFmpeg's libraries, block by block, from its first sample to its last.

    The encoder's delay and padding are left out if the file states them. A damaged packet is replaced by silence
    of the same length, so that everything else stays in place.

    It cannot seek: timestamps are sample-accurate only in some containers, and an MP3 frame may use bits of earlier
    frames.
*/
class FFmpegDecoder
{
public:
    /** @param source  read from its start; must outlive the decoder
        @returns null if the source's format is unknown, if it has no audio that can be decoded, or if FFmpeg's
                 libraries are not available
    */
    static std::unique_ptr<FFmpegDecoder> open (juce::InputStream& source);

    double getSampleRate() const { return sampleRate; }         /**< in Hz, the same for all blocks */
    int getNumChannels() const { return channels.nb_channels; } /**< the same for all blocks */

    /** The most recently decoded block. After open(), this is the stream's first block. */
    const juce::AudioBuffer<float>& getBlock() const { return block; }

    /** Decodes the next block.

        @returns false at the end of the stream; the block is then empty
    */
    bool readBlock();

    /** Counts the samples per channel of the whole stream. Decodes all of it, unless the file is MP3 or MPEG-4. The
        decoder cannot be used afterwards.
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

    const AVStream* stream = nullptr; // owned by the container
    AVChannelLayout channels {};
    int sampleRate = 0;

    // The converter's input format.
    AVChannelLayout frameChannels {};
    int frameRate = 0;
    int frameFormat = -1;

    juce::int64 numTicks = 0;  // duration of the packets read so far, in the stream's time base
    juce::int64 numToSkip = 0; // samples to leave out of the audio of these packets
    bool hasFailed = false;
    bool isDraining = false;
    juce::AudioBuffer<float> block;

    JUCE_DECLARE_NON_COPYABLE (FFmpegDecoder)
};
