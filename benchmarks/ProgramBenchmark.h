#pragma once

#include "Song.h"

/** Prints what the whole kelvane-render takes for a tempo change, beside other programs that are
    installed, and its peak memory beside what the buffers of a textbook stretch would take.
*/
void benchmarkPrograms (const Song& song);
