#include "app/MainComponent.h"

#include "pipeline/RunChecks.h"
#include "pipeline/SharedMessages.h"

#include <memory>
#include <utility>

void MainComponent::executeClicked()
{
    if (pipelineRunner != nullptr && pipelineRunner->isThreadRunning())
    {
        pipelineRunner->cancel();
        setStatus ("Cancelling...");
        executeButton.setEnabled (false);
        return;
    }

    inputPanel.reportUrlEdit();
    PipelineConfig config;
    juce::String error;

    if (! buildConfig (config, error))
    {
        showWarning ("Cannot start pipeline", error);
        return;
    }

    progress = 0.0;
    progressBar.settle();
    setStatus ("Starting...");
    executeButton.setButtonText ("Cancel");

    pipelineRunner = std::make_unique<PipelineRunner> (std::move (config));
    const juce::Component::SafePointer<MainComponent> safeThis (this);

    pipelineRunner->onProgress = [safeThis] (double fraction, const juce::String& text)
    {
        if (auto* const self = safeThis.getComponent())
        {
            self->progress = fraction;
            self->progressBar.follow();
            self->setStatus (text);
        }
    };

    pipelineRunner->onFinished = [safeThis] (bool success, const juce::String& message)
    {
        if (auto* const self = safeThis.getComponent())
            self->pipelineFinished (success, message);
    };

    if (! pipelineRunner->startThread())
        pipelineFinished (false, messages::threadNotStarted);
}

void MainComponent::pipelineFinished (bool success, const juce::String& message)
{
    // The thread reports its end as its last step, so this wait is short.
    if (pipelineRunner != nullptr)
        pipelineRunner->waitForThreadToExit (3000);

    executeButton.setButtonText ("Execute");
    executeButton.setEnabled (true);

    if (success)
    {
        progress = 1.0;
        progressBar.settle();
        setStatus ("Done.");
        showMessage (juce::MessageBoxIconType::InfoIcon, "Pipeline complete", message);
        return;
    }

    const auto wasCancelled = message == messages::cancelled;
    progress = 0.0;
    progressBar.settle();
    setStatus (wasCancelled ? messages::cancelled : "Failed.");

    if (message.isNotEmpty() && ! wasCancelled)
        showWarning ("Pipeline failed", message);
}

bool MainComponent::buildConfig (PipelineConfig& config, juce::String& error)
{
    return readSource (config, error) && readStems (config, error) && readTempo (config, error)
           && readOutput (config, error);
}

bool MainComponent::readSource (PipelineConfig& config, juce::String& error)
{
    config.useUrl = inputPanel.urlToggle.getToggleState();

    if (! config.useUrl)
    {
        config.inputFile = inputPanel.selectedFile;

        if (! config.inputFile.existsAsFile())
            error = "Choose an input audio file, or switch to a YouTube URL.";

        return error.isEmpty();
    }

    config.url = inputPanel.urlBox.getText().trim();

    if (config.url.isEmpty())
        error = "Enter a YouTube URL, or switch to a local audio file.";
    else if (! runchecks::looksLikeUrl (config.url))
        error = "That doesn't look like a valid URL:\n" + config.url;
    else if (isCached (config.url))
        config.cachedAudio = cachedAudio;

    return error.isEmpty();
}

bool MainComponent::readStems (PipelineConfig& config, juce::String& error)
{
    stemPanel.getStems (config.stems);
    config.fullSong = stemPanel.fullSongToggle.getToggleState();
    config.modelName = stemPanel.getModelName();

    if (! config.wantsStems() && ! config.fullSong)
        error = "Select at least one stem (or 'Full song').";

    return error.isEmpty();
}

bool MainComponent::readTempo (PipelineConfig& config, juce::String& error)
{
    const auto selectedKey = [] (const juce::ComboBox& box)
    { return juce::jlimit (1, PipelineConfig::numKeys, box.getSelectedId()) - 1; };

    config.stretchMode = tempoPanel.getStretchMode();
    config.adjustMode = tempoPanel.getAdjustMode();
    config.percent = tempoPanel.percentSlider.getValue();
    config.autoBpm = tempoPanel.bpmAutoToggle.getToggleState();
    config.fromBpm = tempoPanel.bpmFromBox.getText().getDoubleValue();
    config.toBpm = tempoPanel.bpmToBox.getText().getDoubleValue();
    config.autoKey = tempoPanel.keyAutoToggle.getToggleState();
    config.fromKey = selectedKey (tempoPanel.keyFromBox);
    config.toKey = selectedKey (tempoPanel.keyToBox);

    if (config.adjustMode == AdjustMode::Bpm)
        error = runchecks::checkTempos (config);

    return error.isEmpty();
}

bool MainComponent::readOutput (PipelineConfig& config, juce::String& error)
{
    config.outputDir = outputPanel.outputFolder;
    config.sampleRate = outputPanel.getSampleRate();
    config.bitDepth = outputPanel.getBitDepth();

    error = runchecks::prepareOutputFolder (config.outputDir);
    return error.isEmpty();
}
