#pragma once

#include <gtest/gtest.h>
#include <juce_events/juce_events.h>

#include <optional>

/** Runs a test of components or jobs while the message thread waits. No display is needed. */
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

private:
    std::optional<juce::MessageManagerLock> lock;
};
