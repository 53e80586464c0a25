#include "audio/FFmpegLibraries.h"

#include <optional>

#include <dlfcn.h>

namespace ffmpeg
{

namespace
{

/** Opens a library for good, because some of FFmpeg's dependencies crash when they are unloaded. */
void* open (const char* name)
{
    return dlopen (name, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
}

template <typename Function>
bool find (void* in, const char* name, Function& function)
{
    function = in != nullptr ? reinterpret_cast<Function> (dlsym (in, name)) : nullptr;
    return function != nullptr;
}

/** Accepts only the major versions of the headers, because other versions have different interfaces. */
std::optional<Functions> load()
{
    auto* const avutil = open ("libavutil.so." AV_STRINGIFY (LIBAVUTIL_VERSION_MAJOR));
    auto* const avcodec = open ("libavcodec.so." AV_STRINGIFY (LIBAVCODEC_VERSION_MAJOR));
    auto* const avformat = open ("libavformat.so." AV_STRINGIFY (LIBAVFORMAT_VERSION_MAJOR));
    auto* const swresample = open ("libswresample.so." AV_STRINGIFY (LIBSWRESAMPLE_VERSION_MAJOR));

    Functions functions;
    auto foundAll = true;

#define KELVANE_FIND(library, name) foundAll = find (library, #name, functions.name) && foundAll;
    KELVANE_FFMPEG_FUNCTIONS (KELVANE_FIND)
#undef KELVANE_FIND

    if (! foundAll)
        return {};

    // A file of a few kilobytes can claim an index of 2 GB, which FFmpeg would allocate before it reads any of it.
    constexpr size_t largestBlock = 1 << 29; // bytes
    functions.av_max_alloc (largestBlock);
    return functions;
}

const std::optional<Functions>& loadOnce()
{
    static const auto functions = load();
    return functions;
}

} // namespace

bool isAvailable()
{
    return loadOnce().has_value();
}

const Functions& library()
{
    return *loadOnce();
}

} // namespace ffmpeg
