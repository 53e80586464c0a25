#pragma once

/** What the user reads when a job's thread fails as a thread, whatever the job was. */
namespace threadfailures
{

inline constexpr auto notStarted = "Could not start a thread. Close other programs and try again.";

/** For an exception that says nothing about itself. */
inline constexpr auto endedEarly = "Unexpected error: the job ended early.\nClose other programs and try again.";

} // namespace threadfailures
