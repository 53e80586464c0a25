#include "pipeline/PipelineConfig.h"

#include <algorithm>

const std::array<const char*, PipelineConfig::numStems> PipelineConfig::stemNames =
    std::to_array ({ "drums", "bass", "vocals", "other" });

const std::array<const char*, PipelineConfig::numKeys> PipelineConfig::keyNames =
    std::to_array ({ "C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B" });

bool PipelineConfig::wantsStems() const
{
    return std::any_of (std::begin (stems), std::end (stems), [] (bool wanted) { return wanted; });
}
