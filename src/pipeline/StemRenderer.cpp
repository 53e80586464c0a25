#include "pipeline/StemRenderer.h"

#include "audio/AudioFile.h"
#include "audio/MemoryLimit.h"
#include "audio/Resample.h"
#include "audio/TimeStretch.h"
#include "pipeline/FileInFolder.h"

#include <cmath>

StemRenderer::StemRenderer (const PipelineConfig& configToUse, Job jobToDo)
    : config (configToUse), job (std::move (jobToDo))
{
}

bool StemRenderer::render (juce::String& message)
{
    juce::AudioFormatManager formats;
    audiofile::registerFormats (formats);

    const auto numFiles = static_cast<double> (job.entries.size());

    for (size_t i = 0; i < job.entries.size(); ++i)
    {
        if (shouldCancel())
            return false;

        onProgress (static_cast<double> (i) * 0.3 / numFiles + 0.68,
                    "Processing " + job.entries[i].name + "..." + job.statusSuffix);

        if (! renderFile (formats, job.entries[i], message))
            return false;
    }

    return true;
}

static bool changesRate (double sourceRate, double targetRate)
{
    return std::abs (targetRate - sourceRate) > 0.5;
}

bool StemRenderer::changesSpeed() const
{
    return std::abs (job.ratio - 1.0) > 1e-6;
}

static juce::String notRead (const juce::File& file)
{
    return "Could not read audio file:\n" + file.getFullPathName();
}

bool StemRenderer::renderFile (juce::AudioFormatManager& formats, const Entry& entry, juce::String& message)
{
    const auto size = entry.audio.getSize();
    const auto reader = audiofile::open (formats, entry.audio);

    if (reader == nullptr)
    {
        message = notRead (entry.audio);
        return false;
    }

    const auto sourceRate = reader->sampleRate;
    const auto targetRate = config.sampleRate > 0 ? static_cast<double> (config.sampleRate) : sourceRate;

    requireMemoryFor (reader->numChannels * samplesHeldAtOnce (*reader, targetRate));

    auto source = audiofile::readWhole (*reader);

    // If another program has shortened the file in the meantime, readers return silence for the missing part.
    if (entry.audio.existsAsFile() && entry.audio.getSize() < size)
    {
        message = notRead (entry.audio);
        return false;
    }

    auto buffer = changeSpeed (std::move (source));

    if (changesRate (sourceRate, targetRate))
        buffer = stretch::resample (buffer, sourceRate / targetRate);

    const auto outputFile = fileInFolder (job.outDir, job.baseName + " - " + entry.name + ".wav");

    const auto write = checksWrites ? audiofile::replaceWav : audiofile::writeWav;

    if (! write (outputFile, buffer, targetRate, config.bitDepth, message))
        return false;

    ++filesWritten;
    return true;
}

double StemRenderer::samplesHeldAtOnce (const juce::AudioFormatReader& reader, double targetRate) const
{
    const auto length = static_cast<double> (juce::jmin (reader.lengthInSamples, audiofile::maxSamples));
    const auto keepsLength = config.adjustMode == AdjustMode::Key && config.stretchMode == StretchMode::TempoOnly;
    const auto changed = changesSpeed() ? length / job.ratio : 0.0;
    const auto finished = changesSpeed() && ! keepsLength ? changed : length;
    const auto converted =
        changesRate (reader.sampleRate, targetRate) ? finished * targetRate / reader.sampleRate : 0.0;
    return juce::jmax (length + changed, finished + converted);
}

juce::AudioBuffer<float> StemRenderer::changeSpeed (juce::AudioBuffer<float> buffer) const
{
    if (! changesSpeed())
        return buffer;

    if (config.stretchMode == StretchMode::TempoAndPitch)
        return stretch::resample (buffer, job.ratio);

    if (config.adjustMode == AdjustMode::Key)
    {
        // Resampling changes pitch and length; the stretch restores the length.
        buffer = stretch::resample (buffer, job.ratio);
        return stretch::timeStretch (buffer, job.ratio);
    }

    return stretch::timeStretch (buffer, 1.0 / job.ratio);
}
