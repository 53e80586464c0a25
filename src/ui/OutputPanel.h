#pragma once

#include "ui/PanelBase.h"

#include <memory>

/** The folder that receives the files, and their sample rate and bit depth. */
class OutputPanel : public PanelBase
{
public:
    OutputPanel();

    void resized() override;

    /** In Hz, with 0 for the source's own, as PipelineConfig::sampleRate has it. */
    int getSampleRate() const;

    /** 16, 24 or 32, as PipelineConfig::bitDepth has it. */
    int getBitDepth() const;

    /** Opens the folder dialog. */
    void browse();

private:
    juce::Label saveLabel { {}, "Save location" };
    juce::TextButton chooseButton { "Choose folder..." };
    juce::Label folderLabel;
    juce::Label rateLabel { {}, "Sample rate" };
    juce::ComboBox rateBox;
    juce::Label depthLabel { {}, "Bit depth" };
    juce::ComboBox depthBox;

public:
    juce::File outputFolder; /**< the desktop, as long as none has been chosen */

private:
    std::unique_ptr<juce::FileChooser> chooser;

    void folderChosen (const juce::File& folder);

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (OutputPanel)
};
