#include "pipeline/Detection.h"

#include "pipeline/PipelineConfig.h"

#include <string_view>

/** @returns false if the text could make JUCE's parser misbehave. The parser recurses for each bracket, reads past the
    end of text that ends in a minus sign, takes any character after a minus sign for a digit, and overflows at more
    than 18 digits before the decimal point or 9 in an exponent.
*/
static bool isSafeToParse (std::string_view json)
{
    constexpr auto maxLength = 1000, maxDigits = 9;
    auto numDigits = 0;

    for (const auto character : json)
    {
        const auto isFraction = character == '.' && numDigits > 0;
        numDigits = character >= '0' && character <= '9' ? numDigits + 1 : (isFraction ? -maxLength : 0);

        if (numDigits > maxDigits || static_cast<unsigned char> (character) >= 0x80)
            return false;
    }

    return json.size() <= size_t { maxLength } && json.ends_with ('}');
}

Detection Detection::fromJson (const juce::String& json)
{
    if (! isSafeToParse (json.toRawUTF8()))
        return {};

    const auto value = juce::JSON::parse (json);
    constexpr auto lastKey = PipelineConfig::numKeys - 1.0;

    Detection detection;
    detection.bpm = static_cast<double> (value.getProperty ("bpm", 0.0));
    detection.key =
        static_cast<int> (juce::jlimit (0.0, lastKey, static_cast<double> (value.getProperty ("key_index", 0))));
    return detection;
}
