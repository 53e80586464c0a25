#include "ui/InputPanel.h"

#include "ui/Availability.h"
#include "ui/FileDialog.h"
#include "ui/Theme.h"

InputPanel::InputPanel() : PanelBase (juce::CharPointer_UTF8 ("1 · Input"))
{
    constexpr auto sourceGroup = 100;
    localToggle.setRadioGroupId (sourceGroup);
    urlToggle.setRadioGroupId (sourceGroup);
    localToggle.setToggleState (true, juce::dontSendNotification);

    localToggle.onClick = [this] { updateEnablement(); };
    urlToggle.onClick = [this] { updateEnablement(); };
    chooseButton.onClick = [this] { browse(); };

    fileLabel.setText ("No file selected", juce::dontSendNotification);
    fileLabel.setColour (juce::Label::textColourId, theme::textDim);
    fileLabel.setFont (juce::Font (juce::FontOptions (12.5f)));
    fileLabel.setMinimumHorizontalScale (0.8f);

    // A long link wraps, but the Return key adds no line break.
    urlBox.setMultiLine (true, true);
    urlBox.setReturnKeyStartsNewLine (false);
    urlBox.setScrollbarsShown (false);
    urlBox.setTextToShowWhenEmpty ("https://youtube.com/watch?v=...", theme::textDim);
    urlBox.setFont (juce::Font (juce::FontOptions (13.0f)));
    urlBox.setTitle ("YouTube URL");
    urlBox.onTextChange = [this] { reportUrlEdit(); };

    addAndMakeVisible (localToggle);
    addAndMakeVisible (urlToggle);
    addAndMakeVisible (chooseButton);
    addAndMakeVisible (fileLabel);
    addAndMakeVisible (urlBox);

    updateEnablement();
}

void InputPanel::resized()
{
    auto area = contentArea();

    localToggle.setBounds (area.removeFromTop (24));
    area.removeFromTop (6);
    chooseButton.setBounds (area.removeFromTop (30).withTrimmedLeft (indent));
    area.removeFromTop (6);
    fileLabel.setBounds (area.removeFromTop (22).withTrimmedLeft (indent));
    area.removeFromTop (22);
    urlToggle.setBounds (area.removeFromTop (24));
    area.removeFromTop (6);
    urlBox.setBounds (area.removeFromTop (52).withTrimmedLeft (indent));
}

void InputPanel::updateEnablement()
{
    const auto url = urlToggle.getToggleState();
    setAvailable (chooseButton, ! url);
    setAvailable (fileLabel, ! url);
    setAvailable (urlBox, url);
}

void InputPanel::browse()
{
    openFileDialog (chooser, "Choose an audio file", juce::File::getSpecialLocation (juce::File::userMusicDirectory),
                    offeredPatterns, juce::FileBrowserComponent::canSelectFiles,
                    [this] (const juce::File& file) { fileChosen (file); });
}

void InputPanel::useFile (const juce::File& file)
{
    localToggle.setToggleState (true, juce::dontSendNotification);
    updateEnablement();
    fileChosen (file);
}

void InputPanel::useUrl (const juce::String& url)
{
    urlToggle.setToggleState (true, juce::dontSendNotification);
    updateEnablement();
    urlBox.setText (url);
}

void InputPanel::reportUrlEdit()
{
    if (urlBox.getText() == reportedUrl)
        return;

    reportedUrl = urlBox.getText();
    juce::NullCheckedInvocation::invoke (onUrlEdited);
}

bool InputPanel::offers (const juce::File& file)
{
    return juce::WildcardFileFilter (offeredPatterns, {}, {}).isFileSuitable (file);
}

void InputPanel::fileChosen (const juce::File& file)
{
    if (! file.existsAsFile() || file == selectedFile)
        return;

    selectedFile = file;
    fileLabel.setText (file.getFileName(), juce::dontSendNotification);
    fileLabel.setTooltip (file.getFullPathName());
    juce::NullCheckedInvocation::invoke (onFileChosen);
}
