#include "ui/OutputPanel.h"

#include "ui/Caption.h"
#include "ui/FileDialog.h"

#include <array>

namespace
{

struct SampleRate
{
    const char* text;
    int hertz;
};

struct BitDepth
{
    const char* text;
    int bits;
};

// The id of a combo box's item is its index here plus one.
constexpr std::array sampleRates {
    SampleRate { "Same as source", 0 }, SampleRate { "44.1 kHz", 44100 }, SampleRate { "48 kHz", 48000 },
    SampleRate { "88.2 kHz", 88200 },   SampleRate { "96 kHz", 96000 },
};

constexpr std::array bitDepths {
    BitDepth { "16-bit PCM", 16 },
    BitDepth { "24-bit PCM", 24 },
    BitDepth { "32-bit float", 32 },
};

template <typename Choices>
void fill (juce::ComboBox& box, const Choices& choices, int selectedId)
{
    auto id = 0;
    for (const auto& choice : choices)
        box.addItem (choice.text, ++id);

    box.setSelectedId (selectedId, juce::dontSendNotification);
}

/** Returns the selected choice, or the default if none is selected. */
template <typename Choices>
const auto& selected (const juce::ComboBox& box, const Choices& choices, size_t defaultIndex)
{
    const auto index = static_cast<size_t> (box.getSelectedId() - 1);
    return index < choices.size() ? choices[index] : choices[defaultIndex];
}

} // namespace

OutputPanel::OutputPanel()
    : PanelBase (juce::CharPointer_UTF8 ("4 · Output")),
      outputFolder (juce::File::getSpecialLocation (juce::File::userDesktopDirectory))
{
    styleAsCaption (saveLabel);
    styleAsCaption (rateLabel);
    styleAsCaption (depthLabel);
    styleAsCaption (folderLabel);
    folderLabel.setText (outputFolder.getFullPathName(), juce::dontSendNotification);
    folderLabel.setMinimumHorizontalScale (0.7f);

    chooseButton.onClick = [this] { browse(); };

    fill (rateBox, sampleRates, 1);
    fill (depthBox, bitDepths, 2);
    rateBox.setTitle (rateLabel.getText());
    depthBox.setTitle (depthLabel.getText());

    addAndMakeVisible (saveLabel);
    addAndMakeVisible (chooseButton);
    addAndMakeVisible (folderLabel);
    addAndMakeVisible (rateLabel);
    addAndMakeVisible (rateBox);
    addAndMakeVisible (depthLabel);
    addAndMakeVisible (depthBox);
}

void OutputPanel::resized()
{
    auto area = contentArea();

    saveLabel.setBounds (area.removeFromTop (18));
    area.removeFromTop (4);
    chooseButton.setBounds (area.removeFromTop (30));
    area.removeFromTop (4);
    folderLabel.setBounds (area.removeFromTop (22));
    area.removeFromTop (16);
    rateLabel.setBounds (area.removeFromTop (18));
    area.removeFromTop (4);
    rateBox.setBounds (area.removeFromTop (28));
    area.removeFromTop (12);
    depthLabel.setBounds (area.removeFromTop (18));
    area.removeFromTop (4);
    depthBox.setBounds (area.removeFromTop (28));
}

int OutputPanel::getSampleRate() const
{
    return selected (rateBox, sampleRates, 0).hertz;
}

int OutputPanel::getBitDepth() const
{
    return selected (depthBox, bitDepths, 1).bits;
}

void OutputPanel::browse()
{
    openFileDialog (chooser, "Choose the output folder", outputFolder, {},
                    juce::FileBrowserComponent::canSelectDirectories,
                    [this] (const juce::File& folder) { folderChosen (folder); });
}

void OutputPanel::folderChosen (const juce::File& folder)
{
    if (! folder.isDirectory())
        return;

    outputFolder = folder;
    folderLabel.setText (folder.getFullPathName(), juce::dontSendNotification);
    folderLabel.setTooltip (folder.getFullPathName());
}
