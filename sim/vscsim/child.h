#pragma once

#include <string>
#include <vector>

namespace vscsim {

/// Takes the signals that end programs, and those of children, away from all threads to come; a
/// Child waits for them instead.
void HoldSignals();

/// Runs a program with umockdev's library preloaded, passes SIGINT, SIGTERM and SIGHUP on to it,
/// and waits for its end.
/// @return its exit status, 128 plus the signal that killed it, or 126 or 127 as shells say when it
///         cannot be run
int RunPreloaded(const std::vector<std::string> &command);

/// Starts this program anew with the same library preloaded, unless it is: only then can umockdev
/// tell programs that run of devices that come and go. Returns when it cannot.
void PreloadOurselves(char **arguments);

} // namespace vscsim
