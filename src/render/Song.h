#pragma once

#include <juce_core/juce_core.h>

/** A song on the command line: a file, or the URL of a video. */
struct Song
{
    bool isUrl() const { return url.isNotEmpty(); }
    juce::String getName() const { return isUrl() ? url : file.getFileName(); }

    juce::File file;
    juce::String url; /**< empty for a file */
};
