#include "ui/ArrowComponent.h"

#include "ui/Theme.h"

#include <array>
#include <string_view>

namespace
{

constexpr std::array<std::string_view, 7> bitmap {
    "....#...", //
    "....##..", //
    "#######.", //
    "########", //
    "#######.", //
    "....##..", //
    "....#...", //
};

constexpr int numRows = static_cast<int> (bitmap.size());
constexpr int numColumns = static_cast<int> (bitmap.front().size());

} // namespace

void ArrowComponent::paint (juce::Graphics& g)
{
    const auto cell = juce::jmax (1, juce::jmin (getHeight() / numRows, getWidth() / numColumns));
    const auto left = (getWidth() - numColumns * cell) / 2;
    const auto top = (getHeight() - numRows * cell) / 2;

    g.setColour (theme::accent);

    for (auto row = 0; row < numRows; ++row)
        for (auto column = 0; column < numColumns; ++column)
            if (bitmap[static_cast<size_t> (row)][static_cast<size_t> (column)] == '#')
                g.fillRect (left + column * cell, top + row * cell, cell, cell);
}
