#pragma once

#include "Song.h"

/** Registers benchmarks that compare timeStretch(), with each search back end, to scalarTimeStretch().
    @param song  must outlive the benchmarks
*/
void registerStretchBenchmarks (const Song& song);
