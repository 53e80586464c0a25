#pragma once

#include "Song.h"

/** Registers benchmarks that compare the stretch, with each search back end, with scalarTimeStretch().
    @param song  must outlive the benchmarks
*/
void registerStretchBenchmarks (const Song& song);
