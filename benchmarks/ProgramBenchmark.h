#pragma once

#include <juce_core/juce_core.h>

/** Prints the CPU time of kelvane-render for a change of tempo next to that of other installed programs, and its peak
    memory next to the buffers of a textbook stretch.

    Call this in a process that has never loaded a song, because a child's peak memory starts from its parent's. The
    programs write their results beside the file.

    @param minute  a WAV file
*/
void benchmarkPrograms (const juce::File& minute);
