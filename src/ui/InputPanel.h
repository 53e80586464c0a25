#pragma once

#include "ui/PanelBase.h"

#include <functional>
#include <memory>

/** Where the song comes from: a local file or a link. The controls of the other one are dimmed.

    What is entered is not judged here. The members are public for the owner to read and to wire.
*/
class InputPanel : public PanelBase
{
public:
    InputPanel();

    void resized() override;

    /** Dims what does not belong to the selected source. To be called where that is set without notification. */
    void updateEnablement();

    /** Opens the file dialog. */
    void browse();

    /** Selects the local source, and chooses a file there as the dialog would. */
    void useFile (const juce::File& file);

    /** Selects the link as the source and fills its box, which counts as an edit if that changes it. */
    void useUrl (const juce::String& url);

    /** Calls onUrlEdited if an edit has not been reported yet. JUCE posts its notice of one, and while the message
        thread is busy the user can click on something else before that notice arrives.
    */
    void reportUrlEdit();

    /** Whether the file dialog offers files with such a name. */
    static bool offers (const juce::File& file);

    std::function<void()> onUrlEdited;  /**< on every change of the link's text */
    std::function<void()> onFileChosen; /**< when another file than before has been chosen */

    juce::ToggleButton localToggle { "Local audio file" };
    juce::ToggleButton urlToggle { "YouTube URL" };
    juce::TextButton chooseButton { "Choose file..." };
    juce::Label fileLabel;
    juce::TextEditor urlBox;
    juce::File selectedFile; /**< as long as none has been chosen, a default juce::File */
    std::unique_ptr<juce::FileChooser> chooser;

private:
    void fileChosen (const juce::File& file);

    juce::String reportedUrl; /**< the link's text when onUrlEdited was last called */

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (InputPanel)
};
