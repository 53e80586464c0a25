#pragma once

#include <juce_core/juce_core.h>

/** Prints what the whole kelvane-render takes for a tempo change, beside other programs that are
    installed, and its peak memory beside what the buffers of a textbook stretch would take.

    To be called in a process that has never held a song: a child's peak memory counts from its
    parent's. Results are written beside the file.

    @param minute  a WAV file
*/
void benchmarkPrograms (const juce::File& minute);
