#include "app/WindowPainting.h"

#include "ui/Theme.h"

namespace
{

constexpr int pixel = 3;

void paintBadge (juce::Graphics& g, juce::Rectangle<int> area)
{
    constexpr auto cornerSize = 8.0f;
    g.setColour (theme::field);
    g.fillRoundedRectangle (area.toFloat(), cornerSize);
    g.setColour (theme::panelLine);
    g.drawRoundedRectangle (area.toFloat(), cornerSize, 1.2f);

    g.setColour (theme::accent);
    g.setFont (juce::Font (juce::FontOptions (static_cast<float> (area.getHeight()) * 0.5f)).boldened());
    g.drawText ("K", area, juce::Justification::centred, true);
}

} // namespace

void paintBackground (juce::Graphics& g, const juce::Drawable* picture, juce::Rectangle<int> area)
{
    if (picture != nullptr)
    {
        picture->drawWithin (g, area.toFloat(), juce::RectanglePlacement::stretchToFit, 1.0f);
        return;
    }

    g.setGradientFill (
        { theme::bg.brighter (0.07f), 0.0f, 0.0f, theme::bg, 0.0f, static_cast<float> (area.getHeight()), false });
    g.fillAll();
}

void paintHeaderRule (juce::Graphics& g, int left, int right, int y)
{
    const auto line = juce::Line (left, y, right, y).toFloat();
    g.setColour (theme::panelLine.withAlpha (0.7f));
    g.drawLine (line, 1.2f);
}

void paintConnector (juce::Graphics& g, juce::Rectangle<int> fromPanel, juce::Rectangle<int> toPanel, int targetX)
{
    const auto top = toPanel.getY();
    const auto sourceX = fromPanel.getX() + fromPanel.getWidth() / 2 - 1;
    const auto crossingY = top - 16;

    g.setColour (theme::accent);

    for (auto y = fromPanel.getY() - pixel; y > crossingY; y -= pixel)
        g.fillRect (sourceX, y, pixel, pixel);

    for (auto x = sourceX; x < targetX; x += pixel)
        g.fillRect (x, crossingY, pixel, pixel);

    for (auto y = top - 13; y < top - 9; y += pixel)
        g.fillRect (targetX - 1, y, pixel, pixel);

    g.fillRect (targetX - 7, top - 9, 15, pixel);
    g.fillRect (targetX - 4, top - 6, 9, pixel);
    g.fillRect (targetX - 1, top - 3, 3, pixel);
}

void paintLogo (juce::Graphics& g, const juce::Drawable* picture, juce::Rectangle<int> area)
{
    if (picture == nullptr)
    {
        paintBadge (g, area);
        return;
    }

    picture->drawWithin (g, area.toFloat(), juce::RectanglePlacement::centred, 1.0f);
}
