#include "pipeline/Utf8.h"

#include <gtest/gtest.h>

TEST (Utf8Test, KeepsEveryCharacter)
{
    for (juce::juce_wchar c = 1; c <= 0x10ffff; c = (c == 0xd7ff ? 0xe000 : c + 1))
    {
        const auto text = juce::String::charToString (c) + "x";
        ASSERT_EQ (decodeUtf8 (text.toRawUTF8()), text) << static_cast<unsigned> (c);
    }
}

TEST (Utf8Test, ReplacesIllFormedSequences)
{
    const auto replaced = [] (std::string_view bytes)
    {
        const auto text = decodeUtf8 (bytes);
        return text.retainCharacters (juce::String::charToString (0xfffd)).length();
    };

    using namespace std::string_view_literals;

    EXPECT_EQ (replaced ("\x80 \xbf"sv), 2);
    EXPECT_EQ (replaced ("\xc3 \xc3"sv), 2) << "no continuation";
    EXPECT_EQ (replaced ("\xe6\x97 \xe6 \xf0\x9f\x8e"sv), 6) << "cut short";
    EXPECT_EQ (replaced ("\xc0\x80 \xc1\xbf \xe0\x9f\xbf \xf0\x8f\xbf\xbf"sv), 11) << "longer than needed";
    EXPECT_EQ (replaced ("\xed\xa0\x80 \xf4\x90\x80\x80 \xf5\x80\x80\x80 \xfe\xff"sv), 13) << "no characters";
    EXPECT_EQ (decodeUtf8 ("a\0b\xffz"sv), juce::String (juce::CharPointer_UTF8 ("a\xef\xbf\xbd"
                                                                                 "b\xef\xbf\xbdz")));
    EXPECT_EQ (decodeUtf8 ({}), juce::String());
}
