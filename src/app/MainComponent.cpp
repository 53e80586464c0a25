#include "app/MainComponent.h"

#include "app/WindowPainting.h"
#include "ui/DialogSize.h"
#include "ui/Theme.h"

#include <BinaryData.h>

#include <initializer_list>
#include <utility>

namespace
{

constexpr int sideMargin = 22;
constexpr int topMargin = 16;
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

/** Cancels a job and waits up to 5 seconds for its thread.

    A cancelled run still finishes the file that it is rendering, which can take longer. Its thread is then left
    running until the program exits: stopThread() would kill it, which aborts the program if the thread is in code
    that cannot be unwound.
*/
template <typename Runner>
void cancelAndWait (std::unique_ptr<Runner>& runner)
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
    cancelAndWait (pipelineRunner);
    cancelAndWait (analysisRunner);
    clearUrlCache();

    // A cancelled download may have created its folder again before it ended.
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

    setUpLabel (footerLabel, juce::CharPointer_UTF8 ("Kelvane · free software under the AGPL, version 3"),
                fontOfHeight (10.5f), theme::textDim.withAlpha (0.6f));
}

void MainComponent::setUpExecution()
{
    executeButton.setColour (juce::TextButton::buttonColourId, theme::accentDim);
    executeButton.setColour (juce::TextButton::textColourOffId, theme::textOnAccent);
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
    {
        juce::AlertWindow::showMessageBoxAsync (icon, title, text);
        juce::MessageManager::callAsync ([] { keepDialogSize(); }); // after the queued message that opens the alert
    };
}

void MainComponent::addChildren()
{
    const std::initializer_list<std::pair<juce::Component*, const char*>> children {
        { &titleLabel, "titleLabel" },   { &inputPanel, "inputPanel" },   { &stemPanel, "stemPanel" },
        { &tempoPanel, "tempoPanel" },   { &outputPanel, "outputPanel" }, { &arrow1, "arrow1" },
        { &arrow2, "arrow2" },           { &arrow3, "arrow3" },           { &executeButton, "executeButton" },
        { &progressBar, "progressBar" }, { &statusLabel, "statusLabel" }, { &footerLabel, "footerLabel" }
    };

    for (const auto& [child, id] : children)
    {
        child->setComponentID (id);
        addAndMakeVisible (child);
    }

    for (auto* const arrow : { &arrow1, &arrow2, &arrow3 })
        arrow->setInterceptsMouseClicks (false, false);

    progressBar.settle();

    // The slider's text box was created before the look and feel was set, and would keep the default colours.
    sendLookAndFeelChange();
}

void MainComponent::resized()
{
    auto area = getLocalBounds().reduced (sideMargin, topMargin);

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
    paintHeaderRule (g, sideMargin, getWidth() - sideMargin, headerRuleY);
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
