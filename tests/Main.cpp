#include <gtest/gtest.h>
#include <juce_events/juce_events.h>

#include <cstdlib>
#include <thread>

/** Tests run on a thread of their own, so that the main thread is the message thread that the code
    under test knows, with its loop running.
*/
int main (int argc, char* argv[])
{
    testing::InitGoogleTest (&argc, argv);

#if JUCE_LINUX
    // Without a name JUCE would try the first display that there is, and end with it.
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
