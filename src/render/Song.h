#pragma once

#include <juce_core/juce_core.h>

/** A song that the user has named: a file, or the URL of one. */
struct Song
{
    bool isUrl() const { return url.isNotEmpty(); }
    juce::String getName() const { return isUrl() ? url : file.getFileName(); }

    juce::File file;
    juce::String url; /**< empty for a file */
};
