#include <gtest/gtest.h>
#include <juce_events/juce_events.h>

#include <thread>

/** Tests run on a thread of their own, so that the main thread is the message thread that the code
    under test knows, with its loop running.
*/
int main (int argc, char* argv[])
{
    testing::InitGoogleTest (&argc, argv);
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
