#include "audio/FFmpegDecoder.h"

#include <cstring>
#include <utility>
#include <vector>

namespace
{

/** The containers that may be opened. Playlists are not among them, because they name other files. */
constexpr auto containers = "aac,ac3,aiff,amr,ape,asf,au,avi,caf,dts,eac3,flac,flv,matroska,mov,mp3,mpc,mpc8,mpeg,"
                            "mpegts,ogg,tak,tta,voc,w64,wav,wv";

/** No audio hardware has a higher rate, but a damaged file may claim any rate. */
constexpr auto maxSampleRate = 768000;

int readBytes (void* source, uint8_t* bytes, int size)
{
    const auto numRead = static_cast<juce::InputStream*> (source)->read (bytes, size);
    return numRead > 0 ? numRead : AVERROR_EOF;
}

int64_t seek (void* source, int64_t offset, int whence)
{
    auto& stream = *static_cast<juce::InputStream*> (source);

    if ((whence & AVSEEK_SIZE) != 0)
        return stream.getTotalLength();

    return stream.setPosition (offset) ? stream.getPosition() : AVERROR (EIO);
}

/** @returns the number of samples to leave out of a packet's audio, at its start and end together */
juce::int64 samplesToSkip (const AVPacket& packet)
{
    size_t size = 0;
    const auto* const data = ffmpeg::library().av_packet_get_side_data (&packet, AV_PKT_DATA_SKIP_SAMPLES, &size);

    if (data == nullptr || size < 8)
        return 0;

    return juce::int64 { juce::ByteOrder::littleEndianInt (data) } + juce::ByteOrder::littleEndianInt (data + 4);
}

/** Demuxers mistake tags or garbage after the last frame for a packet. */
bool isNoMp3Frame (const AVPacket& packet, const AVCodecParameters& parameters)
{
    return parameters.codec_id == AV_CODEC_ID_MP3
           && (packet.size < 2 || packet.data[0] != 0xff || (packet.data[1] & 0xe0) != 0xe0);
}

/** @returns the length that Apple's encoders store, the fourth hexadecimal number of a tag; 0 if there is none */
juce::int64 appleSamples (const AVFormatContext& container)
{
    const auto* const entry = ffmpeg::library().av_dict_get (container.metadata, "iTunSMPB", nullptr, 0);

    if (entry == nullptr)
        return 0;

    auto numbers = juce::StringArray::fromTokens (juce::String (juce::CharPointer_ASCII (entry->value)), false);
    numbers.removeEmptyStrings();
    return numbers.size() > 3 ? numbers[3].getHexValue64() : 0;
}

} // namespace

FFmpegDecoder::FFmpegDecoder (juce::InputStream& sourceToUse)
    : source (sourceToUse), packet (lib.av_packet_alloc()), frame (lib.av_frame_alloc())
{
}

FFmpegDecoder::~FFmpegDecoder()
{
    lib.av_channel_layout_uninit (&channels);
    lib.av_channel_layout_uninit (&frameChannels);
}

std::unique_ptr<FFmpegDecoder> FFmpegDecoder::open (juce::InputStream& source)
{
    if (! ffmpeg::isAvailable())
        return nullptr;

    // By default, the libraries print every fault that they find in a file.
    ffmpeg::library().av_log_set_level (AV_LOG_QUIET);

    std::unique_ptr<FFmpegDecoder> decoder (new FFmpegDecoder (source));
    return decoder->openContainer() && decoder->openCodec() && decoder->readFirstBlock() ? std::move (decoder)
                                                                                         : nullptr;
}

bool FFmpegDecoder::openContainer (const char* flag)
{
    constexpr auto ioBufferSize = 32768;

    if (! source.setPosition (0))
        return false;

    auto* const buffer = static_cast<unsigned char*> (lib.av_malloc (ioBufferSize));
    io.reset (lib.avio_alloc_context (buffer, ioBufferSize, 0, &source, readBytes, nullptr, seek));

    auto* context = lib.avformat_alloc_context();
    context->pb = io.get();
    context->format_whitelist = lib.av_strdup (containers);

    AVDictionary* options = nullptr;

    if (flag != nullptr)
        lib.av_dict_set_int (&options, flag, 1, 0);

    // On failure this frees the context and sets it to null.
    lib.avformat_open_input (&context, nullptr, nullptr, &options);
    lib.av_dict_free (&options);
    container.reset (context);
    return container != nullptr && lib.avformat_find_stream_info (container.get(), nullptr) >= 0;
}

bool FFmpegDecoder::openCodec()
{
    const AVCodec* implementation = nullptr;
    const auto best = lib.av_find_best_stream (container.get(), AVMEDIA_TYPE_AUDIO, -1, -1, &implementation, 0);

    if (best < 0 || implementation == nullptr)
        return false;

    for (unsigned i = 0; i < container->nb_streams; ++i)
        container->streams[i]->discard = static_cast<int> (i) == best ? AVDISCARD_DEFAULT : AVDISCARD_ALL;

    stream = container->streams[best];
    codec.reset (lib.avcodec_alloc_context3 (implementation));
    codec->pkt_timebase = stream->time_base;

    return lib.avcodec_parameters_to_context (codec.get(), stream->codecpar) >= 0
           && lib.avcodec_open2 (codec.get(), implementation, nullptr) >= 0;
}

/** Takes the format from a decoded frame, because an AAC file may play at twice the rate that its header states. */
bool FFmpegDecoder::readFirstBlock()
{
    auto outcome = decode();

    for (; outcome == Outcome::lostPacket; outcome = decode())
        numTicks = 0; // damaged packets before the first audio are left out

    if (outcome == Outcome::end || frame->sample_rate <= 0 || frame->sample_rate > maxSampleRate)
        return false;

    sampleRate = frame->sample_rate;
    lib.av_channel_layout_copy (&channels, &frame->ch_layout);

    if (! configureConverter())
        return false;

    convertFrame();
    return true;
}

bool FFmpegDecoder::readBlock()
{
    auto outcome = Outcome::end;

    do
    {
        outcome = decode();

        if (outcome == Outcome::frame)
            convertFrame();
        else
            fillBlockWithSilence (outcome == Outcome::lostPacket ? toSamples (packetTicks()) : 0);
    } while (block.getNumSamples() == 0 && outcome != Outcome::end);

    return outcome != Outcome::end;
}

juce::int64 FFmpegDecoder::countSamples()
{
    if (isContainer ("mp3"))
        return countByClock();

    if (isContainer ("mov"))
        return countByEdits();

    return countByDecoding();
}

juce::int64 FFmpegDecoder::countByClock()
{
    readAllPackets();
    return juce::jmax (juce::int64 {}, toSamples (numTicks) - numToSkip);
}

/** The edit list of an MPEG-4 file selects the section to play, and states its length in ticks that can be as long as a
    millisecond. Within that precision, the section is usually all the audio after the encoder's delay, and the exact
    length of that audio is known.
*/
juce::int64 FFmpegDecoder::countByEdits()
{
    constexpr auto coarsestClock = 500; // Hz

    readAllPackets();
    FFmpegDecoder unedited (source);

    if (! unedited.openContainer ("ignore_editlist") || ! unedited.openCodec())
        return 0;

    unedited.readAllPackets();

    const auto delay = juce::jmax (numToSkip, unedited.numToSkip);
    auto numSamples = juce::jmax (juce::int64 {}, toSamples (unedited.numTicks) - delay);

    if (stream->duration != AV_NOPTS_VALUE)
    {
        // Without an edit, the duration includes the delay.
        const auto isEdited = stream->duration < unedited.stream->duration;
        const auto played = juce::jmax (juce::int64 {}, toSamples (stream->duration) - (isEdited ? 0 : delay));

        if (numSamples > played + (isEdited ? sampleRate / coarsestClock : 0))
            numSamples = played;
    }

    if (const auto apple = appleSamples (*container); apple > 0)
        numSamples = juce::jmin (apple, numSamples);

    return numSamples;
}

juce::int64 FFmpegDecoder::countByDecoding()
{
    juce::int64 numSamples = 0;

    do
    {
        numSamples += block.getNumSamples();
    } while (readBlock());

    return numSamples;
}

FFmpegDecoder::Outcome FFmpegDecoder::decode()
{
    for (;;)
    {
        auto result = hasFailed ? AVERROR (EAGAIN) : lib.avcodec_receive_frame (codec.get(), frame.get());

        if (result == 0)
            return Outcome::frame;

        // After a failure, send another packet, or the same failure could repeat forever.
        hasFailed = false;

        if (result == AVERROR (EAGAIN))
            result = feedCodec();

        if (result == AVERROR_EOF)
            return Outcome::end;

        hasFailed = result != 0;

        if (hasFailed)
            return Outcome::lostPacket;
    }
}

/** Sends the codec the next packet, or the end of the stream.

    @returns 0 or an FFmpeg error code; AVERROR_EOF if the end has already been sent
*/
int FFmpegDecoder::feedCodec()
{
    if (isDraining)
        return AVERROR_EOF;

    if (readPacket())
        return lib.avcodec_send_packet (codec.get(), packet.get());

    isDraining = true;
    return lib.avcodec_send_packet (codec.get(), nullptr);
}

/** @returns false at the end of the file, or of its readable part */
bool FFmpegDecoder::readPacket()
{
    do
    {
        lib.av_packet_unref (packet.get());

        if (lib.av_read_frame (container.get(), packet.get()) < 0)
            return false;
    } while (packet->stream_index != stream->index || isNoMp3Frame (*packet, *stream->codecpar));

    if (numTicks == 0)
        markDelay();

    numTicks += packetTicks();
    numToSkip += samplesToSkip (*packet);
    return true;
}

/** Marks the audio before time zero of an MPEG-4 file as the encoder's delay. FFmpeg before version 6 does not do so
    for fragmented files.
*/
void FFmpegDecoder::markDelay()
{
    if (! isContainer ("mov") || packet->pts == AV_NOPTS_VALUE || packet->pts >= 0 || samplesToSkip (*packet) > 0)
        return;

    constexpr auto sizeOfSideData = 10;
    const auto delay = lib.av_rescale_q (-packet->pts, stream->time_base, { 1, stream->codecpar->sample_rate });

    if (auto* const data = lib.av_packet_new_side_data (packet.get(), AV_PKT_DATA_SKIP_SAMPLES, sizeOfSideData))
    {
        const auto littleEndian = juce::ByteOrder::swapIfBigEndian (static_cast<juce::uint32> (delay));
        std::memset (data, 0, sizeOfSideData);
        std::memcpy (data, &littleEndian, sizeof (littleEndian));
    }
}

bool FFmpegDecoder::configureConverter()
{
    if (frame->format == frameFormat && frame->sample_rate == frameRate
        && lib.av_channel_layout_compare (&frame->ch_layout, &frameChannels) == 0)
        return converter != nullptr;

    frameFormat = frame->format;
    frameRate = frame->sample_rate;
    lib.av_channel_layout_copy (&frameChannels, &frame->ch_layout);

    SwrContext* context = nullptr;
    lib.swr_alloc_set_opts2 (&context, &channels, AV_SAMPLE_FMT_FLTP, sampleRate, &frameChannels,
                             static_cast<AVSampleFormat> (frameFormat), frameRate, 0, nullptr);
    converter.reset (context);

    if (converter == nullptr || lib.swr_init (converter.get()) < 0)
        converter.reset();

    return converter != nullptr;
}

void FFmpegDecoder::convertFrame()
{
    if (! configureConverter())
        return fillBlockWithSilence (frame->nb_samples);

    const auto maxSamples = lib.swr_get_out_samples (converter.get(), frame->nb_samples);
    block.setSize (getNumChannels(), maxSamples, false, false, true);

    std::vector<uint8_t*> planes;

    for (int channel = 0; channel < getNumChannels(); ++channel)
        planes.push_back (reinterpret_cast<uint8_t*> (block.getWritePointer (channel)));

    const auto numSamples = lib.swr_convert (converter.get(), planes.data(), maxSamples,
                                             const_cast<const uint8_t**> (frame->extended_data), frame->nb_samples);
    block.setSize (getNumChannels(), juce::jmax (0, numSamples), true, false, true);
}

void FFmpegDecoder::fillBlockWithSilence (juce::int64 numSamples)
{
    block.setSize (getNumChannels(), static_cast<int> (numSamples), false, false, true);
    block.clear();
}

void FFmpegDecoder::readAllPackets()
{
    while (readPacket())
    {
    }
}

/** @returns the packet's duration in ticks, limited because a damaged packet may state any duration */
juce::int64 FFmpegDecoder::packetTicks() const
{
    constexpr auto longestFrame = 10; // seconds

    const auto rate = juce::jlimit (1, maxSampleRate, stream->codecpar->sample_rate);
    const auto frameTicks = lib.av_rescale_q (codec->frame_size, { 1, rate }, stream->time_base);

    // The first packet of a fragment may not state its duration.
    if (packet->duration <= 0)
        return frameTicks;

    // Spectral band replication doubles the length of a frame, and a muxer may put two frames into a packet.
    const auto maxTicks =
        frameTicks > 0 ? 4 * frameTicks : lib.av_rescale_q (longestFrame, { 1, 1 }, stream->time_base);
    return juce::jmin (juce::int64 { packet->duration }, juce::int64 { maxTicks });
}

juce::int64 FFmpegDecoder::toSamples (juce::int64 ticks) const
{
    return lib.av_rescale_q (ticks, stream->time_base, { 1, sampleRate });
}

/** @returns true if this is one of the names of the container's format */
bool FFmpegDecoder::isContainer (const char* name) const
{
    return lib.av_match_name (name, container->iformat->name) != 0;
}
