#pragma once

/** Speed ratios from percentages, tempos and keys. */
namespace speedratio
{

/** The range to which a run limits every ratio, and the text for it in messages. */
constexpr double minimum = 0.25;
constexpr double maximum = 4.0;
constexpr auto range = "0.25x - 4x";

/** @param percent  the change of speed: 100 doubles it, -50 halves it */
double fromPercent (double percent);

/** Both tempos are in beats per minute and above 0. */
double fromTempos (double sourceBpm, double targetBpm);

/** Finds the smaller interval from one key index to another. A tritone goes up.
    @returns semitones from -5 to +6
*/
int semitonesBetween (int sourceKey, int targetKey);

/** The pitch ratio between two key indices in equal temperament. */
double fromKeys (int sourceKey, int targetKey);

} // namespace speedratio
