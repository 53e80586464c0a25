#pragma once

#include <gtest/gtest.h>
#include <juce_gui_basics/juce_gui_basics.h>

#include <optional>

/** Components are made, changed and looked at while the message thread waits. There need be no display. */
class MessageThreadTest : public testing::Test
{
protected:
    MessageThreadTest() { lock.emplace(); }

    /** Lets the message thread deliver what has been posted so far. */
    void deliverMessages()
    {
        lock.reset();
        juce::WaitableEvent delivered;
        juce::MessageManager::callAsync ([&] { delivered.signal(); });
        EXPECT_TRUE (delivered.wait (60000));
        lock.emplace();
    }

private:
    std::optional<juce::MessageManagerLock> lock;
};

/** What a component and its children draw, without what lies beneath them. */
inline juce::Image snapshot (juce::Component& component)
{
    return component.createComponentSnapshot (component.getLocalBounds());
}
