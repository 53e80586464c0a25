# The headers of FFmpeg's libraries, which read the formats that JUCE cannot. The program loads the libraries at run
# time. macOS and Windows have their own codecs.

set(KELVANE_HAS_FFMPEG OFF)
if(NOT CMAKE_SYSTEM_NAME STREQUAL "Linux")
    return()
endif()

option(KELVANE_FFMPEG "Read MP3, M4A and more by the system's FFmpeg libraries" ON)
if(NOT KELVANE_FFMPEG)
    return()
endif()

find_package(PkgConfig)
if(PKG_CONFIG_FOUND)
    # FFmpeg 5.1 is the first release with the current interface for channel layouts.
    pkg_check_modules(KELVANE_FFMPEG_LIBRARIES
        libavformat>=59.27 libavcodec>=59.37 libavutil>=57.28 libswresample>=4.7)
endif()

if(KELVANE_FFMPEG_LIBRARIES_FOUND)
    set(KELVANE_HAS_FFMPEG ON)
else()
    message(WARNING "The development files of FFmpeg's libraries (5.1 or later) are missing. The program will do "
        "without, and will not render an unsplit song that is no WAV, AIFF, FLAC or Ogg Vorbis: no MP3, no M4A.")
endif()
