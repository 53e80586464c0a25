#include <gtest/gtest.h>
#include <juce_events/juce_events.h>

#include <cstdlib>
#include <thread>

/** Runs the tests on a separate thread, so that the main thread can be the message thread and run its loop. */
int main (int argc, char* argv[])
{
    testing::InitGoogleTest (&argc, argv);

#if JUCE_LINUX
    // Without this, JUCE would try to open the default display and exit if it cannot.
    setenv ("DISPLAY", "none", 1);
#endif

    const juce::ScopedJuceInitialiser_GUI juce;
    auto* const messages = juce::MessageManager::getInstance();

    auto result = 1;
    std::thread tests (
        [&]
        {
            result = RUN_ALL_TESTS();
            messages->stopDispatchLoop();
        });

    messages->runDispatchLoop();
    tests.join();
    return result;
}
