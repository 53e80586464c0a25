#pragma once

/** What kelvane-render returns to the shell. */
namespace exitstatus
{

constexpr int success = 0;
constexpr int runFailed = 1;
constexpr int wrongUsage = 2;
constexpr int cancelled = 130; /**< 128 and SIGINT's number, as shells have it */

} // namespace exitstatus
