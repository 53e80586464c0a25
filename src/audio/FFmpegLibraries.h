#pragma once

#include <juce_core/juce_core.h>

JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wconversion", "-Wsign-conversion", "-Wold-style-cast")

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avstring.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

JUCE_END_IGNORE_WARNINGS_GCC_LIKE

#include <memory>

/** What FFmpeg's libraries allocate, owned. */
namespace ffmpeg
{

struct Deleter
{
    void operator() (AVIOContext* io) const
    {
        av_freep (&io->buffer);
        avio_context_free (&io);
    }

    void operator() (AVFormatContext* container) const { avformat_close_input (&container); }
    void operator() (AVCodecContext* codec) const { avcodec_free_context (&codec); }
    void operator() (AVPacket* packet) const { av_packet_free (&packet); }
    void operator() (AVFrame* frame) const { av_frame_free (&frame); }
    void operator() (SwrContext* converter) const { swr_free (&converter); }
};

template <typename Object>
using Owned = std::unique_ptr<Object, Deleter>;

} // namespace ffmpeg
