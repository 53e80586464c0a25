#pragma once

#include <juce_core/juce_core.h>

/** Compares the CPU time that kelvane-render takes to change a song's tempo with that of other installed programs, and
    its peak memory with the buffers of a textbook stretch. Prints the results.

    Call this in a process that has never loaded a song, because a child's peak memory starts from its parent's. The
    programs write their results beside the file.

    @param minute  a WAV file
*/
void benchmarkPrograms (const juce::File& minute);
