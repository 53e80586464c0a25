#pragma once

#include <gtest/gtest.h>
#include <juce_gui_basics/juce_gui_basics.h>

#include <optional>

/** Runs a test of components or jobs while the message thread waits. Needs no display. */
class MessageThreadTest : public testing::Test
{
protected:
    MessageThreadTest() { lock.emplace(); }

    /** Lets the message thread deliver all messages posted so far. */
    void deliverMessages()
    {
        juce::WaitableEvent delivered;
        juce::MessageManager::callAsync ([&] { delivered.signal(); });
        lock.reset();
        ASSERT_TRUE (delivered.wait (60000));
        lock.emplace();
    }

    /** @returns a picture of a component and its children, without anything behind them */
    static juce::Image snapshot (juce::Component& component)
    {
        return component.createComponentSnapshot (component.getLocalBounds());
    }

private:
    std::optional<juce::MessageManagerLock> lock;
};
