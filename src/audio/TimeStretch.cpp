#include "audio/TimeStretch.h"

#include "audio/LargeBuffer.h"
#include "audio/MemoryLimit.h"
#include "audio/Resample.h"
#include "audio/SimilaritySearch.h"

#include <array>
#include <cmath>
#include <optional>

namespace stretch
{

namespace
{

using Buffer = juce::AudioBuffer<float>;

constexpr int synthesisHop = 1024;
constexpr int frameLength = 2 * synthesisHop;
constexpr int minStretchSamples = 4096;
constexpr int outputSlack = 4096;
constexpr int matchLength = matchPoints * matchStride;
static_assert (frameLength <= minStretchSamples && frameLength <= outputSlack);
constexpr float windowSumFloor = 0.001f;

/** One value for each sample of a hop. */
using Hop = std::array<float, synthesisHop>;

/** The two halves of a periodic Hann window, which add up to 1 except for rounding. */
struct Window
{
    Window()
    {
        for (int i = 0; i < synthesisHop; ++i)
        {
            fadeIn[static_cast<size_t> (i)] = at (i);
            fadeOut[static_cast<size_t> (i)] = at (i + synthesisHop);
        }
    }

    static float at (int i)
    {
        const auto phase = static_cast<float> (i) * juce::MathConstants<float>::twoPi * (1.0f / frameLength);
        return 0.5f * (1.0f - std::cos (phase));
    }

    Hop fadeIn;
    Hop fadeOut;
};

/** Finds the position of the frame after the one at previousPosition. */
int chooseReadPosition (int numSamples, int nominalPosition, int previousPosition, SimilaritySearch& search)
{
    const auto naturalPosition = previousPosition + synthesisHop;

    if (naturalPosition + matchLength > numSamples)
        return nominalPosition;

    const auto low = juce::jmax (nominalPosition, searchRadius) - searchRadius;
    const auto high = juce::jmin (nominalPosition + searchRadius, numSamples - frameLength);

    if (low > high)
        return nominalPosition;

    return search.findBest (naturalPosition, low, high, nominalPosition);
}

/** Overlaps frames by half, and divides by the sum of their windows.

    So each hop of the result is the second half of one frame plus the first half of the next, and is finished as soon
    as both are known. The first hop only fades in and the last one only fades out.
*/
class OverlapAdd
{
public:
    OverlapAdd (const Buffer& inputToRead, Buffer& resultToFill) : input (inputToRead), result (resultToFill)
    {
        for (size_t i = 0; i < onlyFadeIn.size(); ++i)
        {
            onlyFadeIn[i] = juce::jmax (window.fadeIn[i], windowSumFloor);
            onlyFadeOut[i] = juce::jmax (window.fadeOut[i], windowSumFloor);
            bothFades[i] = juce::jmax (window.fadeOut[i] + window.fadeIn[i], windowSumFloor);
        }
    }

    void beginWith (int readPosition) { fillHop ({}, readPosition, onlyFadeIn); }
    void crossfade (int from, int to) { fillHop (from, to, bothFades); }
    void endWith (int readPosition) { fillHop (readPosition, {}, onlyFadeOut); }

private:
    void fillHop (std::optional<int> fadingOut, std::optional<int> fadingIn, const Hop& windowSum)
    {
        static constexpr Hop silence {};
        const auto length = juce::jmin (synthesisHop, result.getNumSamples() - position);

        for (int channel = 0; length > 0 && channel < input.getNumChannels(); ++channel)
        {
            const auto* const samples = input.getReadPointer (channel);
            const auto* const outgoing = fadingOut ? samples + *fadingOut + synthesisHop : silence.data();
            const auto* const incoming = fadingIn ? samples + *fadingIn : silence.data();
            auto* const destination = result.getWritePointer (channel, position);

            // Adding to zero, as in a cleared buffer, turns the sum of two negative zeros into a positive zero.
            for (int i = 0; i < length; ++i)
            {
                const auto n = static_cast<size_t> (i);
                const auto sum = 0.0f + outgoing[i] * window.fadeOut[n] + incoming[i] * window.fadeIn[n];
                destination[i] = sum / windowSum[n];
            }
        }

        position += synthesisHop;
    }

    const Buffer& input;
    Buffer& result;
    const Window window;
    Hop onlyFadeIn, onlyFadeOut, bothFades;
    int position = 0;
};

} // namespace

Buffer timeStretch (const Buffer& input, double ratio)
{
    return timeStretch (input, ratio, fastestSearchBackend());
}

Buffer timeStretch (const Buffer& input, double ratio, const SearchBackend& backend)
{
    const auto numSamples = input.getNumSamples();

    if (numSamples == 0 || std::abs (ratio - 1.0) < 1e-9)
        return input;

    if (numSamples < minStretchSamples)
        return resample (input, 1.0 / ratio);

    const auto targetLength = toBufferLength (std::round (static_cast<double> (numSamples) * ratio));
    const auto analysisHop = toBufferLength (std::round (static_cast<double> (synthesisHop) / ratio));

    // The number of frames that the input has, and a number that is certain to reach past the target length.
    const auto numInInput = (numSamples - frameLength) / analysisHop + 1;
    const auto numToTarget =
        static_cast<int> ((static_cast<juce::int64> (targetLength) + outputSlack - frameLength) / synthesisHop) + 1;
    const auto numFrames = juce::jmin (numInInput, numToTarget);
    const auto lastFrameEnd = (numFrames - 1) * static_cast<juce::int64> (synthesisHop) + frameLength;
    const auto resultLength = static_cast<int> (juce::jmin (lastFrameEnd, static_cast<juce::int64> (targetLength)));

    requireMemoryFor (input.getNumChannels() * (static_cast<double> (numSamples) + resultLength));

    auto result = makeLargeBuffer (input.getNumChannels(), resultLength);
    OverlapAdd output (input, result);
    SimilaritySearch search (input, backend);

    auto readPosition = 0;
    output.beginWith (readPosition);

    for (int frame = 1; frame < numFrames; ++frame)
    {
        const auto previousPosition = readPosition;
        readPosition = chooseReadPosition (numSamples, frame * analysisHop, previousPosition, search);
        output.crossfade (previousPosition, readPosition);
    }

    output.endWith (readPosition);
    return result;
}

} // namespace stretch
