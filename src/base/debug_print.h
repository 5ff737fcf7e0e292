#pragma once

namespace vsccam {

/// Switches the debug printer on or off; off at start.
void SetDebugPrint(bool on);

/// Prints one message behind the library's tag to standard output, in one write, so that messages
/// of several threads do not mix. Messages are cut to 127 characters. Costs one load when off. A
/// closed standard output is no reason to disturb the host.
void OutputDbgPrint(const char *format, ...) __attribute__((format(printf, 1, 2)));

} // namespace vsccam
