#include "support/MessageThread.h"

#include <BinaryData.h>
#include <juce_gui_basics/juce_gui_basics.h>

#include <array>
#include <string>
#include <string_view>

namespace
{

std::string_view resource (const char* name)
{
    int size = -1;
    const auto* const data = BinaryData::getNamedResource (name, size);
    return data != nullptr ? std::string_view (data, static_cast<size_t> (size)) : std::string_view {};
}

int bigEndian16 (std::string_view bytes, size_t at)
{
    return juce::ByteOrder::bigEndianShort (bytes.data() + at);
}

struct ResourcesTest : MessageThreadTest
{
};

} // namespace

TEST_F (ResourcesTest, AreFoundByTheirResourceNamesAlone)
{
    const std::array<std::pair<const char*, const char*>, 3> names { { { "GeistPixelRegularVariableFont_ELSH_ttf",
                                                                         "GeistPixel-Regular-VariableFont_ELSH.ttf" },
                                                                       { "Background_svg", "Background.svg" },
                                                                       { "Logo_png", "Logo.png" } } };

    ASSERT_EQ (BinaryData::namedResourceListSize, 3);

    for (size_t index = 0; index < names.size(); ++index)
    {
        const auto [name, file] = names[index];
        EXPECT_STREQ (BinaryData::namedResourceList[index], name);
        EXPECT_STREQ (BinaryData::getNamedResourceOriginalFilename (name), file);
        EXPECT_FALSE (resource (name).empty());
        EXPECT_TRUE (resource (file).empty());
        EXPECT_EQ (BinaryData::getNamedResourceOriginalFilename (file), nullptr);
    }

    EXPECT_TRUE (resource ("").empty());
    EXPECT_TRUE (resource (nullptr).empty());

    // It is the hash that is looked up: 31 times a letter's successor makes up for 31 off the next letter.
    EXPECT_EQ (resource ("Logo_poH").data(), resource ("Logo_png").data());
}

TEST_F (ResourcesTest, AreWhatTheirNamesSay)
{
    const auto font = resource ("GeistPixelRegularVariableFont_ELSH_ttf");
    EXPECT_EQ (bigEndian16 (font, 4), 20) << "tables";

    const auto logo = resource ("Logo_png");
    const auto image = juce::ImageFileFormat::loadFrom (logo.data(), logo.size());
    EXPECT_EQ (image.getBounds(), juce::Rectangle (1024, 1024));
    EXPECT_EQ (image.getPixelAt (0, 0).getAlpha(), 0);
    EXPECT_EQ (image.getPixelAt (512, 512).getAlpha(), 255);

    // The stripes: points whose colour is told by their place on the two diagonals.
    const auto svg = resource ("Background_svg");
    const auto picture = juce::Drawable::createFromImageData (svg.data(), svg.size());
    ASSERT_NE (picture, nullptr);
    juce::Image canvas (juce::Image::ARGB, 1200, 510, true);
    juce::Graphics g (canvas);
    picture->drawWithin (g, canvas.getBounds().toFloat(), juce::RectanglePlacement::stretchToFit, 1.0f);

    const juce::Colour amber (0xffdf7705), red (0xffa03310), brown (0xff721b00);
    EXPECT_EQ (canvas.getPixelAt (100, 100), amber);
    EXPECT_EQ (canvas.getPixelAt (200, 200), red);
    EXPECT_EQ (canvas.getPixelAt (300, 300), brown);
    EXPECT_EQ (canvas.getPixelAt (1100, 410), amber);
    EXPECT_EQ (canvas.getPixelAt (1000, 310), red);
    EXPECT_EQ (canvas.getPixelAt (900, 210), brown);
}
