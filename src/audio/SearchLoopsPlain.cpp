#include "audio/SearchLoops.h"

namespace
{

/** Has the shape of a four-lane register, so that compilers turn it into one. */
struct Plain
{
    struct Floats
    {
        float lanes[4];
    };

    static constexpr int numLanes = 4;
    static constexpr bool scoresRoughly = false;

    static Floats broadcast (float value) { return { { value, value, value, value } }; }
    static Floats load (const float* from) { return { { from[0], from[1], from[2], from[3] } }; }

    static void store (float* to, Floats value)
    {
        for (int lane = 0; lane < numLanes; ++lane)
            to[lane] = value.lanes[lane];
    }

    static Floats addProduct (Floats sum, Floats a, Floats b)
    {
        for (int lane = 0; lane < numLanes; ++lane)
            sum.lanes[lane] += a.lanes[lane] * b.lanes[lane];

        return sum;
    }
};

} // namespace

stretch::SearchBackend stretch::plainSearchBackend()
{
    return { "plain", findBest<Plain> };
}
