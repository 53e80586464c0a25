#pragma once

/** Ctrl-C on the console. */
namespace interrupt
{

/** From here on the first Ctrl-C is noted instead of ending the program; a second one ends it. */
void listen();

/** Whether a Ctrl-C has come. */
bool hasCome();

} // namespace interrupt
