#include "ui/PanelBase.h"

#include "ui/Theme.h"

#include <utility>

namespace
{

constexpr int titleHeight = 38;
constexpr float cornerSize = 12.0f;

} // namespace

PanelBase::PanelBase (juce::String titleToUse) : title (std::move (titleToUse)) {}

PanelBase::~PanelBase() = default;

void PanelBase::paint (juce::Graphics& g)
{
    const auto frame = getLocalBounds().toFloat().reduced (1.0f);
    g.setColour (theme::panel);
    g.fillRoundedRectangle (frame, cornerSize);
    g.setColour (theme::panelLine);
    g.drawRoundedRectangle (frame, cornerSize, 1.2f);

    g.setColour (theme::accent.withAlpha (0.9f));
    g.setFont (juce::Font (juce::FontOptions (12.5f)).boldened());
    g.drawText (title.toUpperCase(), titleStrip(), juce::Justification::centredLeft, true);

    g.setColour (theme::panelLine.withAlpha (0.7f));
    const auto y = static_cast<float> (titleHeight);
    g.drawLine (static_cast<float> (margin), y, static_cast<float> (getWidth() - margin), y, 1.0f);
}

juce::Rectangle<int> PanelBase::titleStrip() const
{
    return getLocalBounds().reduced (margin, 0).removeFromTop (titleHeight);
}

juce::Rectangle<int> PanelBase::contentArea() const
{
    auto area = getLocalBounds().reduced (margin);
    area.removeFromTop (30);
    return area;
}
