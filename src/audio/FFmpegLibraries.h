#pragma once

#include <juce_core/juce_core.h>

JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wconversion", "-Wsign-conversion")

extern "C"
{
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avstring.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libswresample/swresample.h>
}

JUCE_END_IGNORE_WARNINGS_GCC_LIKE

#include <memory>

/** FFmpeg's libraries, loaded from the system when a file first needs them.

    They depend on more than a hundred other libraries, so linking to them would double the program's start-up time. The
    program would also fail to start on a system that has a different version of them, or does not have them.
*/
namespace ffmpeg
{

// The functions that Kelvane uses, each with its library.
#define KELVANE_FFMPEG_FUNCTIONS(CALL)                                                                                 \
    CALL (avutil, av_channel_layout_compare)                                                                           \
    CALL (avutil, av_channel_layout_copy)                                                                              \
    CALL (avutil, av_channel_layout_uninit)                                                                            \
    CALL (avutil, av_dict_free)                                                                                        \
    CALL (avutil, av_dict_get)                                                                                         \
    CALL (avutil, av_dict_set_int)                                                                                     \
    CALL (avutil, av_frame_alloc)                                                                                      \
    CALL (avutil, av_frame_free)                                                                                       \
    CALL (avutil, av_freep)                                                                                            \
    CALL (avutil, av_log_set_level)                                                                                    \
    CALL (avutil, av_malloc)                                                                                           \
    CALL (avutil, av_match_name)                                                                                       \
    CALL (avutil, av_max_alloc)                                                                                        \
    CALL (avutil, av_rescale_q)                                                                                        \
    CALL (avutil, av_strdup)                                                                                           \
    CALL (avcodec, av_packet_alloc)                                                                                    \
    CALL (avcodec, av_packet_free)                                                                                     \
    CALL (avcodec, av_packet_get_side_data)                                                                            \
    CALL (avcodec, av_packet_new_side_data)                                                                            \
    CALL (avcodec, av_packet_unref)                                                                                    \
    CALL (avcodec, avcodec_alloc_context3)                                                                             \
    CALL (avcodec, avcodec_free_context)                                                                               \
    CALL (avcodec, avcodec_open2)                                                                                      \
    CALL (avcodec, avcodec_parameters_to_context)                                                                      \
    CALL (avcodec, avcodec_receive_frame)                                                                              \
    CALL (avcodec, avcodec_send_packet)                                                                                \
    CALL (avformat, av_find_best_stream)                                                                               \
    CALL (avformat, av_read_frame)                                                                                     \
    CALL (avformat, avformat_alloc_context)                                                                            \
    CALL (avformat, avformat_close_input)                                                                              \
    CALL (avformat, avformat_find_stream_info)                                                                         \
    CALL (avformat, avformat_open_input)                                                                               \
    CALL (avformat, avio_alloc_context)                                                                                \
    CALL (avformat, avio_context_free)                                                                                 \
    CALL (swresample, swr_alloc_set_opts2)                                                                             \
    CALL (swresample, swr_convert)                                                                                     \
    CALL (swresample, swr_free)                                                                                        \
    CALL (swresample, swr_get_out_samples)                                                                             \
    CALL (swresample, swr_init)

struct Functions
{
#define KELVANE_DECLARE(library, name) decltype (&::name) name = nullptr;
    KELVANE_FFMPEG_FUNCTIONS (KELVANE_DECLARE)
#undef KELVANE_DECLARE
};

/** @returns true if the libraries are installed in the major versions that the program was built for. If not, nothing
    else in this header may be used.
*/
bool isAvailable();

const Functions& library();

struct Deleter
{
    void operator() (AVIOContext* io) const
    {
        library().av_freep (&io->buffer);
        library().avio_context_free (&io);
    }

    void operator() (AVFormatContext* container) const { library().avformat_close_input (&container); }
    void operator() (AVCodecContext* codec) const { library().avcodec_free_context (&codec); }
    void operator() (AVPacket* packet) const { library().av_packet_free (&packet); }
    void operator() (AVFrame* frame) const { library().av_frame_free (&frame); }
    void operator() (SwrContext* converter) const { library().swr_free (&converter); }
};

/** Owns an object that the libraries allocated. */
template <typename Object>
using Owned = std::unique_ptr<Object, Deleter>;

} // namespace ffmpeg
