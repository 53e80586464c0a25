#pragma once

/** Detects Ctrl-C on the console. */
namespace interrupt
{

/** Catches the first Ctrl-C. A second one ends the program. */
void listen();

/** @returns true after the first Ctrl-C */
bool hasCome();

} // namespace interrupt
