#include "pipeline/WorkerOutput.h"

#include <gtest/gtest.h>

TEST (WorkerOutputTest, SplitsTheSameLinesWhereverAReadEnds)
{
    const std::string text = "one\r\n  two é日本 \n\n \t \rth\xff\xc3\n\xe6\x97\xa5 WAV_PATH::/tmp/日.wav\nlast";
    std::string whole = text, lines;
    splitLines (whole, lines, {}, true);
    const auto expected = juce::String::fromUTF8 (lines.data(), static_cast<int> (lines.size()));
    EXPECT_TRUE (expected.startsWith (juce::CharPointer_UTF8 ("one\ntwo é日本\nth")));
    EXPECT_TRUE (expected.endsWith ("\nlast\n"));
    EXPECT_EQ (findMarker (expected, "WAV_PATH::"), juce::String (juce::CharPointer_UTF8 ("/tmp/日.wav")));

    for (size_t size = 1; size < 12; ++size)
    {
        juce::String delivered;
        std::string pending, output;

        for (size_t i = 0; i < text.size(); i += size)
        {
            pending += text.substr (i, size);
            splitLines (pending, output, [&] (const juce::String& line) { delivered << line << "\n"; }, false);
        }

        EXPECT_EQ (pending, "last");
        splitLines (pending, output, {}, true);
        EXPECT_EQ (output, lines) << size;
        EXPECT_EQ (delivered + "last\n", expected) << size;
    }
}
