#pragma once

#include "ui/PanelBase.h"

#include <memory>

/** Selects the output folder, sample rate and bit depth.

    Its members are public for the owner to read.
*/
class OutputPanel : public PanelBase
{
public:
    OutputPanel();

    void resized() override;

    /** Returns the rate in Hz, or 0 for the source's rate. */
    int getSampleRate() const;

    /** Returns 16, 24 or 32. */
    int getBitDepth() const;

    /** Opens the folder dialog. */
    void browse();

    juce::Label saveLabel { {}, "Save location" };
    juce::TextButton chooseButton { "Choose folder..." };
    juce::Label folderLabel;
    juce::Label rateLabel { {}, "Sample rate" };
    juce::ComboBox rateBox;
    juce::Label depthLabel { {}, "Bit depth" };
    juce::ComboBox depthBox;
    juce::File outputFolder; /**< the desktop until the user chooses another */
    std::unique_ptr<juce::FileChooser> chooser;

private:
    void folderChosen (const juce::File& folder);

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (OutputPanel)
};
