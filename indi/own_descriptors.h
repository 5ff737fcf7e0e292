#pragma once

namespace vscindi {

// Descriptor 1 of the process is INDI's protocol, and the library prints its messages to the
// descriptor 1 of the thread that calls it. So the protocol gets a table of descriptors of its own:
// those who call the library can listen to it, and nothing that it ever prints gets among the
// protocol.

/// Gives the calling thread, and those that it starts from then on, a table of its own, with all
/// that is open now. It cannot be the main thread: libraries look into /proc/self/fd, which shows
/// the table of that one.
/// @return false where the system does not allow it, e.g. in some containers
bool TakeOwnDescriptors();

/// The calling thread, and those that share its table, let go of the server.
void LeaveProtocol();

} // namespace vscindi
