#pragma once

/** The arithmetic behind the three ways of asking for a change of speed. */
namespace speedratio
{

/** What a run limits every ratio to. */
constexpr double minimum = 0.25;
constexpr double maximum = 4.0;

/** 100 percent doubles the speed. */
double fromPercent (double percent);

/** Both tempos in beats per minute, above 0. */
double fromTempos (double sourceBpm, double targetBpm);

/** The shorter way from one key to another, up or down; the tritone goes up.
    @returns semitones from -5 to +6
*/
int semitonesBetween (int sourceKey, int targetKey);

/** In equal temperament. Both are key indices. */
double fromKeys (int sourceKey, int targetKey);

} // namespace speedratio
