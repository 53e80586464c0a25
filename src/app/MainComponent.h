#pragma once

#include "pipeline/AnalysisRunner.h"
#include "pipeline/PipelineRunner.h"
#include "ui/ArrowComponent.h"
#include "ui/HoverTooltipWindow.h"
#include "ui/InputPanel.h"
#include "ui/KeyboardNavigation.h"
#include "ui/OutputPanel.h"
#include "ui/PipelineLookAndFeel.h"
#include "ui/RunProgressBar.h"
#include "ui/StemPanel.h"
#include "ui/TempoPanel.h"

#include <juce_gui_basics/juce_gui_basics.h>

#include <functional>
#include <memory>
#include <vector>

/** The content of the main window, and the controller of the program.

    It shows a header, the four panels with arrows between them, and at the bottom the status line, the progress bar
    and the button that starts and cancels a run. It validates the user's input, starts the jobs and shows their
    results. A run and an analysis can be active at the same time.

    Everything happens on the message thread. No flag says whether a job is running: ask its thread instead.
*/
class MainComponent : public juce::Component
{
public:
    MainComponent();
    ~MainComponent() override;

    void paint (juce::Graphics& g) override;
    void resized() override;

    /** Uses a dropped audio file as the song, and shows a warning for anything else.
        @param paths   full paths, or a single link that a browser offered as a file
    */
    void takeDroppedFiles (const juce::StringArray& paths);

    /** Uses a dropped link as the song, and shows a warning for anything else.
        @param text   a link or a file URL, possibly with the page's title on another line
    */
    void takeDroppedText (const juce::String& text);

    /** Validates the user's input in the order of the panels, and stops at the first error.
        @param config  receives the input; complete only if the input is valid
        @param error   receives the message for the user if the input is invalid
        @returns true if the input is valid
    */
    bool buildConfig (PipelineConfig& config, juce::String& error);

    /** Shows a message without waiting for the user, by default in an alert window. Tests replace it, because an alert
        window needs a display.
    */
    std::function<void (juce::MessageBoxIconType, const juce::String& title, const juce::String& text)> showMessage;

private:
    void loadPictures();
    void setUpLabels();
    void setUpExecution();
    void connectPanels();
    void addChildren();
    void layOutHeader (juce::Rectangle<int> header);
    void layOutBottomBar (juce::Rectangle<int> bar);
    void layOutPanels (juce::Rectangle<int> row);

    void executeClicked();
    void pipelineFinished (bool success, const juce::String& message);
    bool readSource (PipelineConfig& config, juce::String& error);
    bool readStems (PipelineConfig& config, juce::String& error);
    bool readTempo (PipelineConfig& config, juce::String& error);
    bool readOutput (PipelineConfig& config, juce::String& error);

    void analyzeClicked();
    bool prepareUrlAnalysis();
    bool prepareFileAnalysis();
    void analysisFinished (const juce::String& url, bool success, double bpm, int key, const juce::File& audio,
                           const juce::String& message);

    void urlEdited();

    /** Cancels a running analysis and forgets the results of the last one.
        @param clearDownload   true to delete the downloaded audio as well
    */
    void sourceChanged (bool clearDownload);
    void clearUrlCache();
    bool isCached (const juce::String& url) const;
    void showWarning (const juce::String& title, const juce::String& text);
    void setStatus (const juce::String& text);

    // Members are destroyed in reverse order: the runners before the components that show their results,
    // and the look and feel after every component that uses it.
    PipelineLookAndFeel lookAndFeel;
    std::unique_ptr<juce::Drawable> background;
    std::unique_ptr<juce::Drawable> logo;
    juce::Label titleLabel;
    juce::Rectangle<int> logoBounds;
    int headerRuleY = 0;

    InputPanel inputPanel;
    StemPanel stemPanel;
    TempoPanel tempoPanel;
    OutputPanel outputPanel;
    ArrowComponent arrow1, arrow2, arrow3;

    juce::TextButton executeButton { "Execute" };
    double progress = 0.0;
    RunProgressBar progressBar { progress };
    juce::Label statusLabel;
    juce::Label footerLabel;
    HoverTooltipWindow tooltipWindow { *this, 700 };
    KeyboardNavigation keyboardNavigation { *this };

    std::unique_ptr<PipelineRunner> pipelineRunner; /**< the latest, finished or not */
    std::unique_ptr<AnalysisRunner> analysisRunner; /**< the latest, finished or not */
    int numAnalyses = 0;                            /**< started so far */
    int awaitedAnalysis = 0;                        /**< the number of the analysis whose result is awaited, or 0 */
    juce::String pendingUrl;                        /**< the URL that the running analysis downloads */
    juce::String cachedUrl;                         /**< the URL that cachedAudio was downloaded from */
    juce::File cachedAudio;
    juce::File urlCacheDir;               /**< the folder of the latest download */
    std::vector<juce::File> oldCacheDirs; /**< the folders of earlier downloads, already deleted */

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (MainComponent)
};
