#include "app/MainComponent.h"

#include "ui/Theme.h"

MainComponent::MainComponent()
{
    setSize (1250, 572);
}

void MainComponent::paint (juce::Graphics& g)
{
    g.setGradientFill (juce::ColourGradient::vertical (theme::bg.brighter (0.07f), theme::bg, getLocalBounds()));
    g.fillAll();
}
