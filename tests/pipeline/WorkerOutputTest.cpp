#include "pipeline/Detection.h"
#include "pipeline/Utf8.h"

#include <gtest/gtest.h>

TEST (WorkerOutputTest, KeepsEveryCharacter)
{
    for (juce::juce_wchar c = 1; c <= 0x10ffff; c = (c == 0xd7ff ? 0xe000 : c + 1))
    {
        const auto text = juce::String::charToString (c) + "x";
        ASSERT_EQ (decodeUtf8 (text.toRawUTF8()), text) << static_cast<unsigned> (c);
    }
}

TEST (WorkerOutputTest, ReplacesIllFormedSequences)
{
    using namespace std::string_view_literals;

    for (const auto& [bytes, numReplaced] : {
             std::pair ("\x80 \xbf \xc3 \xc3"sv, 4),                             // missing or stray continuation bytes
             { "\xe6\x97 \xe6 \xf0\x9f\x8e"sv, 6 },                              // truncated
             { "\xc0\x80 \xc1\xbf \xe0\x9f\xbf \xf0\x8f\xbf\xbf"sv, 11 },        // overlong
             { "\xed\xa0\x80 \xf4\x90\x80\x80 \xf5\x80\x80\x80 \xfe\xff"sv, 13 } // not characters
         })
        EXPECT_EQ (decodeUtf8 (bytes).retainCharacters (juce::String::charToString (0xfffd)).length(), numReplaced);

    EXPECT_EQ (decodeUtf8 ("a\0b\xffz"sv), juce::String (juce::CharPointer_UTF8 ("a\xef\xbf\xbd"
                                                                                 "b\xef\xbf\xbdz")));
}

TEST (WorkerOutputTest, ReadsTempoAndKeyOrTheirDefaults)
{
    for (const auto& [json, bpm, key] : {
             std::tuple ("{\"bpm\": 112.04, \"key_index\": 2}", 112.04, 2),
             { "{\"bpm\": \"87.5\", \"key_index\": 12}", 87.5, 11 },
             { "{\"bpm\": 123456789, \"key_index\": null}", 123456789.0, 0 },
             { "{\"bpm\": 1234567890}", 0.0, 0 },
             { "{\"bpm\": 0.1234567890123456789, \"key_index\": -1}", 0.1234567890123456789, 0 },
             { "not JSON", 0.0, 0 },
         })
    {
        const auto detection = Detection::fromJson (json);
        EXPECT_EQ (detection.bpm, bpm) << json;
        EXPECT_EQ (detection.key, key) << json;
    }
}
