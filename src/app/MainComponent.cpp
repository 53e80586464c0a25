#include "app/MainComponent.h"

#include "app/WindowPainting.h"
#include "ui/Theme.h"

#include <BinaryData.h>

namespace
{

constexpr int arrowColumn = 40;

void setUpLabel (juce::Label& label, const juce::String& text, const juce::Font& font, juce::Colour colour)
{
    label.setText (text, juce::dontSendNotification);
    label.setFont (font);
    label.setColour (juce::Label::textColourId, colour);
}

juce::Font fontOfHeight (float height)
{
    return juce::Font (juce::FontOptions (height));
}

/** Ends a job for good. A run ends with the file that it is rendering, and with an hour of music that takes longer
    than anybody wants to wait. Its thread is then left to the end of the program: to cut it off by force, as
    stopThread() does, aborts the program wherever the thread cannot be unwound.
*/
template <typename Runner>
void end (std::unique_ptr<Runner>& runner)
{
    if (runner == nullptr)
        return;

    runner->cancel();

    constexpr auto timeoutMilliseconds = 5000;
    if (! runner->waitForThreadToExit (timeoutMilliseconds))
        juce::ignoreUnused (runner.release());
}

} // namespace

MainComponent::MainComponent()
{
    juce::LookAndFeel::setDefaultLookAndFeel (&lookAndFeel);
    setLookAndFeel (&lookAndFeel);

    loadPictures();
    setUpLabels();
    setUpExecution();
    connectPanels();
    addChildren();
    setSize (1250, 572);
}

MainComponent::~MainComponent()
{
    end (pipelineRunner);
    end (analysisRunner);
    clearUrlCache();

    // A download that was cancelled may have gone on for a moment, and made its folder once more.
    for (const auto& folder : oldCacheDirs)
        folder.deleteRecursively (false);

    setLookAndFeel (nullptr);
    juce::LookAndFeel::setDefaultLookAndFeel (nullptr);
}

void MainComponent::loadPictures()
{
    background = juce::Drawable::createFromImageData (BinaryData::Background_svg, BinaryData::Background_svgSize);
    logo = juce::Drawable::createFromImageData (BinaryData::Logo_png, BinaryData::Logo_pngSize);
}

void MainComponent::setUpLabels()
{
    setUpLabel (titleLabel, "Kelvane", fontOfHeight (34.0f).boldened(), theme::text);

    setUpLabel (statusLabel, "Ready.", fontOfHeight (13.0f), theme::textDim);
    statusLabel.setMinimumHorizontalScale (0.7f);

    setUpLabel (footerLabel, juce::CharPointer_UTF8 ("Kelvane \xc2\xb7 free software under the AGPL, version 3"),
                fontOfHeight (10.5f), theme::textDim.withAlpha (0.6f));
}

void MainComponent::setUpExecution()
{
    executeButton.setColour (juce::TextButton::buttonColourId, theme::accentDim);
    executeButton.setColour (juce::TextButton::textColourOffId, juce::Colours::white);
    executeButton.onClick = [this] { executeClicked(); };

    progressBar.setPercentageDisplay (true);
    progressBar.setTitle ("Progress");
}

void MainComponent::connectPanels()
{
    tempoPanel.onAnalyze = [this] { analyzeClicked(); };
    inputPanel.onUrlEdited = [this] { urlEdited(); };
    inputPanel.onFileChosen = [this] { sourceChanged (false); };

    showMessage = [] (juce::MessageBoxIconType icon, const juce::String& title, const juce::String& text)
    { juce::AlertWindow::showMessageBoxAsync (icon, title, text); };
}

void MainComponent::addChildren()
{
    addAndMakeVisible (titleLabel);
    addAndMakeVisible (inputPanel);
    addAndMakeVisible (stemPanel);
    addAndMakeVisible (tempoPanel);
    addAndMakeVisible (outputPanel);

    for (auto* const arrow : { &arrow1, &arrow2, &arrow3 })
    {
        arrow->setInterceptsMouseClicks (false, false);
        addAndMakeVisible (arrow);
    }

    addAndMakeVisible (executeButton);
    addAndMakeVisible (progressBar);
    addAndMakeVisible (statusLabel);
    addAndMakeVisible (footerLabel);

    // What the children made of the look and feel of before, the slider's text box say, is made anew.
    sendLookAndFeelChange();
}

void MainComponent::resized()
{
    auto area = getLocalBounds().reduced (22, 16);

    layOutHeader (area.removeFromTop (58));

    area.removeFromTop (14);
    headerRuleY = area.getY();
    area.removeFromTop (18); // for the rule and the connector

    layOutBottomBar (area.removeFromBottom (62));
    area.removeFromBottom (12);

    area.removeFromTop (8);
    layOutPanels (area);

    footerLabel.setBounds (6, getHeight() - 15, 260, 14);
}

void MainComponent::layOutHeader (juce::Rectangle<int> header)
{
    logoBounds = header.removeFromLeft (58).withSizeKeepingCentre (52, 52);
    header.removeFromLeft (14);
    titleLabel.setBounds (header);
}

void MainComponent::layOutBottomBar (juce::Rectangle<int> bar)
{
    statusLabel.setBounds (bar.removeFromTop (20));
    bar.removeFromTop (8);
    executeButton.setBounds (bar.removeFromRight (150));
    bar.removeFromRight (14);
    progressBar.setBounds (bar);
}

void MainComponent::layOutPanels (juce::Rectangle<int> row)
{
    const auto width = row.getWidth() - 3 * arrowColumn;
    const auto share = [width] (double ratio) { return static_cast<int> (width * ratio); };

    const auto placePanel = [&row] (juce::Component& panel, int panelWidth)
    { panel.setBounds (row.removeFromLeft (panelWidth)); };

    const auto placeArrow = [&row] (juce::Component& arrow)
    { arrow.setBounds (row.removeFromLeft (arrowColumn).withSizeKeepingCentre (arrowColumn, 36)); };

    placePanel (inputPanel, share (0.22));
    placeArrow (arrow1);
    placePanel (stemPanel, share (0.21));
    placeArrow (arrow2);
    placePanel (tempoPanel, share (0.34));
    placeArrow (arrow3);
    outputPanel.setBounds (row);
}

void MainComponent::paint (juce::Graphics& g)
{
    paintBackground (g, background.get(), getLocalBounds());
    paintHeaderRule (g, getWidth(), headerRuleY);
    paintConnector (g, inputPanel.getBounds(), tempoPanel.getBounds(),
                    tempoPanel.getX() + tempoPanel.analyzeButton.getX() + tempoPanel.analyzeButton.getWidth() / 2);
    paintLogo (g, logo.get(), logoBounds);
}

void MainComponent::showWarning (const juce::String& title, const juce::String& text)
{
    showMessage (juce::MessageBoxIconType::WarningIcon, title, text);
}

void MainComponent::setStatus (const juce::String& text)
{
    statusLabel.setText (text, juce::dontSendNotification);
}
