#pragma once

// The code is written for JUCE 8.0.12. This header supplies what older 8.0.x versions lack,
// under the same names in the namespace compat.

#include <juce_audio_formats/juce_audio_formats.h>

#if JUCE_MODULE_AVAILABLE_juce_gui_basics
#include <juce_gui_basics/juce_gui_basics.h>
#endif

namespace compat
{

#if JUCE_VERSION >= 0x80009

using juce::AudioFormatWriterOptions;
using juce::WavAudioFormat;

/** A base class for formats that cannot write. */
class ReadOnlyAudioFormat : public juce::AudioFormat
{
public:
    using juce::AudioFormat::AudioFormat;

    std::unique_ptr<juce::AudioFormatWriter> createWriterFor (std::unique_ptr<juce::OutputStream>&,
                                                              const AudioFormatWriterOptions&) override
    {
        return {};
    }
};

#else

class AudioFormatWriterOptions
{
public:
    enum class SampleFormat
    {
        automatic,
        integral,
        floatingPoint
    };

    [[nodiscard]] AudioFormatWriterOptions withSampleRate (double x) const
    {
        return with (&AudioFormatWriterOptions::sampleRate, x);
    }

    [[nodiscard]] AudioFormatWriterOptions withNumChannels (int x) const
    {
        return with (&AudioFormatWriterOptions::numChannels, x);
    }

    [[nodiscard]] AudioFormatWriterOptions withBitsPerSample (int x) const
    {
        return with (&AudioFormatWriterOptions::bitsPerSample, x);
    }

    [[nodiscard]] AudioFormatWriterOptions withSampleFormat (SampleFormat x) const
    {
        return with (&AudioFormatWriterOptions::sampleFormat, x);
    }

    double getSampleRate() const { return sampleRate; }
    int getNumChannels() const { return numChannels; }
    int getBitsPerSample() const { return bitsPerSample; }

private:
    template <typename Value>
    AudioFormatWriterOptions with (Value AudioFormatWriterOptions::*member, Value value) const
    {
        auto copy = *this;
        copy.*member = value;
        return copy;
    }

    double sampleRate = 48000.0;
    int numChannels = 2;
    int bitsPerSample = 16;
    SampleFormat sampleFormat = SampleFormat::automatic;
};

/** Ignores the sample format: before 8.0.9 JUCE writes 32-bit WAV as floating point, and fewer bits as integers. */
class WavAudioFormat : public juce::WavAudioFormat
{
public:
    using juce::WavAudioFormat::createWriterFor;

    std::unique_ptr<juce::AudioFormatWriter> createWriterFor (std::unique_ptr<juce::OutputStream>& stream,
                                                              const AudioFormatWriterOptions& options)
    {
        std::unique_ptr<juce::AudioFormatWriter> writer (
            createWriterFor (stream.get(), options.getSampleRate(),
                             static_cast<unsigned int> (options.getNumChannels()), options.getBitsPerSample(), {}, 0));

        if (writer != nullptr)
            juce::ignoreUnused (stream.release());

        return writer;
    }
};

/** Overrides the overload that JUCE requires before 8.0.9. */
class ReadOnlyAudioFormat : public juce::AudioFormat
{
public:
    using juce::AudioFormat::AudioFormat;
    using juce::AudioFormat::createWriterFor;

    juce::AudioFormatWriter* createWriterFor (juce::OutputStream*, double, unsigned int, int,
                                              const juce::StringPairArray&, int) override
    {
        return nullptr;
    }
};

#endif

#if JUCE_MODULE_AVAILABLE_juce_gui_basics && JUCE_LINUX

/** Makes a window with a native title bar resizable within its limits. JUCE 8.0.6 tells the window manager neither that
    the window is resizable nor what its limits are. Later versions do, so this changes nothing there.
*/
class DocumentWindow : public juce::DocumentWindow
{
public:
    using juce::DocumentWindow::DocumentWindow;

protected:
    int getDesktopWindowStyleFlags() const override
    {
        const auto usual = juce::DocumentWindow::getDesktopWindowStyleFlags();
        return isResizable() && isUsingNativeTitleBar() ? usual | juce::ComponentPeer::windowIsResizable : usual;
    }
};

#elif JUCE_MODULE_AVAILABLE_juce_gui_basics

using juce::DocumentWindow;

#endif

} // namespace compat
