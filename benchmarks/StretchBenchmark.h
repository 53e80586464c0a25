#pragma once

#include "Song.h"

/** Registers benchmarks of the stretch with every search back end against its plain scalar version. */
void registerStretchBenchmarks (const Song& song);
