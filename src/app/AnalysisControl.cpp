#include "app/MainComponent.h"

#include "pipeline/RunChecks.h"
#include "pipeline/SharedMessages.h"
#include "pipeline/TemporaryFolder.h"

#include <memory>
#include <utility>

void MainComponent::analyzeClicked()
{
    inputPanel.reportUrlEdit();

    if (analysisRunner != nullptr && analysisRunner->isThreadRunning())
        return;

    if (! (inputPanel.urlToggle.getToggleState() ? prepareUrlAnalysis() : prepareFileAnalysis()))
        return;

    tempoPanel.setAnalyzeBusy (true);
    awaitedAnalysis = ++numAnalyses;

    analysisRunner->onFinished =
        [safeThis = juce::Component::SafePointer<MainComponent> (this), number = awaitedAnalysis,
         url = pendingUrl] (bool success, double bpm, int key, const juce::File& audio, const juce::String& message)
    {
        // The user may have chosen another song, or started another analysis, in the meantime.
        if (auto* const self = safeThis.getComponent(); self != nullptr && self->awaitedAnalysis == number)
            self->analysisFinished (url, success, bpm, key, audio, message);
    };

    if (! analysisRunner->startThread())
        analysisFinished ({}, false, 0.0, 0, {}, messages::threadNotStarted);
}

bool MainComponent::prepareUrlAnalysis()
{
    const auto url = inputPanel.urlBox.getText().trim();

    if (! runchecks::looksLikeUrl (url))
    {
        showWarning ("Cannot analyze", "Enter a valid YouTube URL first.");
        return false;
    }

    if (isCached (url))
    {
        analysisRunner = std::make_unique<AnalysisRunner> (cachedAudio);
        setStatus ("Analyzing BPM and key...");
        return true;
    }

    clearUrlCache();
    urlCacheDir = newTemporaryFolder ("cache-");
    pendingUrl = url;
    analysisRunner = std::make_unique<AnalysisRunner> (url, urlCacheDir);
    setStatus ("Downloading YouTube audio for analysis (first run may take longer while uv sets up)...");
    return true;
}

bool MainComponent::prepareFileAnalysis()
{
    if (! inputPanel.selectedFile.existsAsFile())
    {
        showWarning ("Cannot analyze", "Choose an input audio file first.");
        return false;
    }

    analysisRunner = std::make_unique<AnalysisRunner> (inputPanel.selectedFile);
    setStatus ("Analyzing BPM and key (first run may take longer while uv sets up)...");
    return true;
}

void MainComponent::analysisFinished (const juce::String& url, bool success, double bpm, int key,
                                      const juce::File& audio, const juce::String& message)
{
    awaitedAnalysis = 0;
    pendingUrl.clear();
    tempoPanel.setAnalyzeBusy (false);

    // Keep the download even if its analysis failed.
    if (url.isNotEmpty() && audio.existsAsFile())
    {
        cachedUrl = url;
        cachedAudio = audio;
    }

    if (! success)
    {
        setStatus ("Analysis failed.");
        showWarning ("Analysis failed", message);
        return;
    }

    tempoPanel.setAnalysisResult (bpm, key);
    setStatus ("Analysis finished.");
}

void MainComponent::urlEdited()
{
    const auto url = inputPanel.urlBox.getText().trim();

    if (url.isEmpty() || (url != pendingUrl && url != cachedUrl))
        sourceChanged (true);
}

void MainComponent::sourceChanged (bool clearDownload)
{
    const auto isAwaited = std::exchange (awaitedAnalysis, 0) != 0;

    // The result of an analysis can still be queued after its thread has ended.
    if (isAwaited || (analysisRunner != nullptr && analysisRunner->isThreadRunning()))
    {
        analysisRunner->cancel();
        tempoPanel.setAnalyzeBusy (false);
        setStatus ("Ready.");
    }

    pendingUrl.clear();
    tempoPanel.clearAnalysisResult();

    if (clearDownload)
        clearUrlCache();
}

bool MainComponent::isCached (const juce::String& url) const
{
    return url == cachedUrl && cachedAudio.existsAsFile();
}

void MainComponent::clearUrlCache()
{
    cachedUrl.clear();
    cachedAudio = juce::File();

    if (urlCacheDir != juce::File())
    {
        urlCacheDir.deleteRecursively (false);
        oldCacheDirs.push_back (std::exchange (urlCacheDir, juce::File()));
    }
}
