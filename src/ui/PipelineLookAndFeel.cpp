#include "ui/PipelineLookAndFeel.h"

#include "ui/Theme.h"

#include <BinaryData.h>

#include <array>

namespace
{

juce::LookAndFeel_V4::ColourScheme makeColourScheme()
{
    return {
        theme::bg,           // windowBackground
        theme::panel,        // widgetBackground
        theme::panel,        // menuBackground
        theme::panelLine,    // outline
        theme::text,         // defaultText
        theme::accentDim,    // defaultFill
        theme::textOnAccent, // highlightedText
        theme::accent,       // highlightedFill
        theme::text          // menuText
    };
}

struct ColourOfId
{
    int id;
    juce::Colour colour;
};

const std::array table {
    ColourOfId { juce::ResizableWindow::backgroundColourId, theme::bg },

    ColourOfId { juce::TextButton::buttonColourId, theme::field },
    ColourOfId { juce::TextButton::buttonOnColourId, theme::accent },
    ColourOfId { juce::TextButton::textColourOffId, theme::text },
    ColourOfId { juce::TextButton::textColourOnId, theme::textOnAccent },

    ColourOfId { juce::TextEditor::backgroundColourId, theme::field },
    ColourOfId { juce::TextEditor::textColourId, theme::text },
    ColourOfId { juce::TextEditor::outlineColourId, theme::panelLine },
    ColourOfId { juce::TextEditor::focusedOutlineColourId, theme::accent },
    ColourOfId { juce::CaretComponent::caretColourId, theme::accent },

    ColourOfId { juce::ComboBox::backgroundColourId, theme::field },
    ColourOfId { juce::ComboBox::textColourId, theme::text },
    ColourOfId { juce::ComboBox::outlineColourId, theme::panelLine },
    ColourOfId { juce::ComboBox::arrowColourId, theme::accent },

    ColourOfId { juce::PopupMenu::backgroundColourId, theme::panel },
    ColourOfId { juce::PopupMenu::textColourId, theme::text },
    ColourOfId { juce::PopupMenu::highlightedBackgroundColourId, theme::accentDim },
    ColourOfId { juce::PopupMenu::highlightedTextColourId, theme::textOnAccent },

    ColourOfId { juce::ToggleButton::textColourId, theme::text },
    ColourOfId { juce::ToggleButton::tickColourId, theme::accent },
    ColourOfId { juce::ToggleButton::tickDisabledColourId, theme::textDim.withAlpha (0.4f) },

    ColourOfId { juce::Slider::backgroundColourId, theme::field },
    ColourOfId { juce::Slider::trackColourId, theme::accentDim },
    ColourOfId { juce::Slider::thumbColourId, theme::accent },
    ColourOfId { juce::Slider::textBoxTextColourId, theme::text },
    ColourOfId { juce::Slider::textBoxBackgroundColourId, theme::field },
    ColourOfId { juce::Slider::textBoxOutlineColourId, theme::panelLine },

    ColourOfId { juce::Label::textColourId, theme::text },

    ColourOfId { juce::ProgressBar::backgroundColourId, theme::field },
    ColourOfId { juce::ProgressBar::foregroundColourId, theme::accent },

    ColourOfId { juce::AlertWindow::backgroundColourId, theme::panel },
    ColourOfId { juce::AlertWindow::textColourId, theme::text },
    ColourOfId { juce::AlertWindow::outlineColourId, theme::panelLine },

    ColourOfId { juce::TooltipWindow::backgroundColourId, theme::panel },
    ColourOfId { juce::TooltipWindow::textColourId, theme::text },
    ColourOfId { juce::TooltipWindow::outlineColourId, theme::panelLine },
};

} // namespace

PipelineLookAndFeel::PipelineLookAndFeel()
    : juce::LookAndFeel_V4 (makeColourScheme()),
      pixelTypeface (juce::Typeface::createSystemTypefaceFor (BinaryData::GeistPixelRegularVariableFont_ELSH_ttf,
                                                              BinaryData::GeistPixelRegularVariableFont_ELSH_ttfSize))
{
    setDefaultSansSerifTypeface (pixelTypeface);

    for (const auto& [id, colour] : table)
        setColour (id, colour);
}

PipelineLookAndFeel::~PipelineLookAndFeel() = default;
