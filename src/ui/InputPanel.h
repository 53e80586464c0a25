#pragma once

#include "ui/PanelBase.h"

#include <functional>
#include <memory>

/** Selects the song: a local file or a link. The controls of the other source are dimmed.

    The panel validates nothing. Its members are public for the owner to read and connect.
*/
class InputPanel : public PanelBase
{
public:
    InputPanel();

    void resized() override;

    /** Enables the controls of the selected source and dims those of the other. Call this after setting a toggle
        without notification.
    */
    void updateEnablement();

    /** Opens the file dialog. */
    void browse();

    /** Selects the local source and a file, as if the user had chosen it in the dialog. */
    void useFile (const juce::File& file);

    /** Selects the link as the source and sets its text, which counts as an edit if the text changes. */
    void useUrl (const juce::String& url);

    /** Calls onUrlEdited if an edit has not been reported yet. JUCE reports edits asynchronously, so the user can
        click a button before the report of the last one arrives.
    */
    void reportUrlEdit();

    /** The file types in the dialog, as wildcards and as text for the user. */
    static constexpr auto offeredPatterns = "*.wav;*.aiff;*.aif;*.mp3;*.flac;*.m4a;*.ogg";
    static constexpr auto offeredTypes = "WAV, AIFF, MP3, FLAC, M4A or OGG";

    /** Returns true if the file dialog shows files with this extension. */
    static bool offers (const juce::File& file);

    std::function<void()> onUrlEdited;  /**< called after each change of the link */
    std::function<void()> onFileChosen; /**< called after the user has chosen a different file */

    juce::ToggleButton localToggle { "Local audio file" };
    juce::ToggleButton urlToggle { "YouTube URL" };
    juce::TextButton chooseButton { "Choose file..." };
    juce::Label fileLabel;
    juce::TextEditor urlBox;
    juce::File selectedFile; /**< a default juce::File until the user chooses one */
    std::unique_ptr<juce::FileChooser> chooser;

private:
    void fileChosen (const juce::File& file);

    juce::String reportedUrl; /**< the link at the last call of onUrlEdited */

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (InputPanel)
};
