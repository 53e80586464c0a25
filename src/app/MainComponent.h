#pragma once

#include "pipeline/AnalysisRunner.h"
#include "pipeline/PipelineRunner.h"
#include "ui/ArrowComponent.h"
#include "ui/InputPanel.h"
#include "ui/KeyboardNavigation.h"
#include "ui/OutputPanel.h"
#include "ui/PipelineLookAndFeel.h"
#include "ui/StemPanel.h"
#include "ui/TempoPanel.h"

#include <juce_gui_basics/juce_gui_basics.h>

#include <functional>
#include <memory>
#include <vector>

/** The single content component of the main window, and the controller of the program.

    It shows a header, the four panels with arrows between them, and at the bottom the status, the progress
    and the one button that starts and cancels a run. It judges what the panels hold, starts the jobs and
    takes their results back. Runs and analyses do not exclude each other.

    Everything happens on the message thread. Whether a job is running is asked of its thread alone.
*/
class MainComponent : public juce::Component
{
public:
    MainComponent();
    ~MainComponent() override;

    void paint (juce::Graphics& g) override;
    void resized() override;

    /** Makes the one audio file that was dropped on the window the song. Anything else is refused with a message.
        @param paths   of the files, or a link where the browser has offered that as a list of one location
    */
    void takeDroppedFiles (const juce::StringArray& paths);

    /** Makes the link that was dropped on the window the song. Anything but one link is refused with a message.
        @param text   a link or the location of a file, perhaps with a title in another line
    */
    void takeDroppedText (const juce::String& text);

    /** Shows a message, and comes back before it has been read; by default in an alert window, which needs a display.
        Tests, which have none, put something else in its place.
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

    /** Judges what the user has entered, in the order of the panels.
        @param config  receives it, complete only if all is well
        @param error   receives the message for the user if something is not
    */
    bool buildConfig (PipelineConfig& config, juce::String& error);
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

    /** What was learnt about the source is void.
        @param clearDownload   whether what was downloaded is, too
    */
    void sourceChanged (bool clearDownload);
    void clearUrlCache();
    bool isCached (const juce::String& url) const;
    void showWarning (const juce::String& title, const juce::String& text);
    void setStatus (const juce::String& text);

    // Members go in reverse order: the runners before what their results are shown in, and the look and
    // feel after all that is drawn with it.
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
    juce::ProgressBar progressBar { progress };
    juce::Label statusLabel;
    juce::Label footerLabel;
    juce::TooltipWindow tooltipWindow { this, 700 };
    KeyboardNavigation keyboardNavigation { *this };

    std::unique_ptr<PipelineRunner> pipelineRunner; /**< the latest, finished or not */
    std::unique_ptr<AnalysisRunner> analysisRunner; /**< the latest, finished or not */
    int numAnalyses = 0;                            /**< that have been started */
    int awaitedAnalysis = 0;                        /**< the number of the one whose completion counts; 0 if none's */
    juce::String pendingUrl;                        /**< what a running analysis downloads */
    juce::String cachedUrl;                         /**< what cachedAudio was downloaded from */
    juce::File cachedAudio;
    juce::File urlCacheDir;               /**< of the latest download */
    std::vector<juce::File> oldCacheDirs; /**< of those before, which have been deleted */

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (MainComponent)
};
