#pragma once

#include "Song.h"

/** Prints what the whole kelvane-render takes for a tempo change, beside other programs that are
    installed, and its peak memory beside the bound that follows from the stretch's buffers.
*/
void benchmarkPrograms (const Song& song);
