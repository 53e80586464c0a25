#include "pipeline/SpeedRatio.h"

#include "pipeline/PipelineConfig.h"

#include <cmath>

namespace speedratio
{

double fromPercent (double percent)
{
    return percent / 100.0 + 1.0;
}

double fromTempos (double sourceBpm, double targetBpm)
{
    return targetBpm / sourceBpm;
}

int semitonesBetween (int sourceKey, int targetKey)
{
    constexpr auto octave = PipelineConfig::numKeys;
    const auto upwards = ((targetKey - sourceKey) % octave + octave) % octave;
    return upwards > octave / 2 ? upwards - octave : upwards;
}

double fromKeys (int sourceKey, int targetKey)
{
    return std::exp2 (semitonesBetween (sourceKey, targetKey) / 12.0);
}

} // namespace speedratio
