#pragma once

#include <chrono>

namespace vsctool {

/// Keeps SIGINT, SIGTERM and SIGHUP for the main thread, which takes them only where it waits: no
/// handler runs in the middle of a file or of a call into the library. SIGPIPE ends nothing either,
/// so that the camera is closed on every way out. To be blocked before the first thread starts.
class StopSignals {
  public:
    static void Block();

    /// Waits; throws Failure with the exit code of the signal when one arrives or has arrived.
    static void SleepFor(std::chrono::milliseconds time);

    /// Waits until there is something to read, or its end, unless a signal comes first: as above.
    static void WaitForInput(int descriptor);
};

} // namespace vsctool
