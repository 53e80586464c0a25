#pragma once

/** Exit statuses of kelvane-render. */
namespace exitstatus
{

constexpr int success = 0;
constexpr int runFailed = 1;
constexpr int wrongUsage = 2;
constexpr int cancelled = 130; /**< 128 plus the number of SIGINT, as in shells */

} // namespace exitstatus
