#pragma once

#include <gtest/gtest.h>
#include <juce_events/juce_events.h>

#include <optional>

/** Calls a function while the message thread waits. */
template <typename Function>
auto onMessageThread (Function function)
{
    const juce::MessageManagerLock lock;
    return function();
}

/** Waits until the message thread has delivered all messages posted so far. */
inline void deliverMessages()
{
    juce::WaitableEvent delivered;
    juce::MessageManager::callAsync ([&] { delivered.signal(); });
    ASSERT_TRUE (delivered.wait (60000));
}

/** Runs a test of components while the message thread waits. Needs no display. */
class MessageThreadTest : public testing::Test
{
protected:
    MessageThreadTest() { lock.emplace(); }

    void deliverMessages()
    {
        lock.reset();
        ::deliverMessages();
        lock.emplace();
    }

private:
    std::optional<juce::MessageManagerLock> lock;
};
