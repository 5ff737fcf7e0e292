#pragma once

namespace vsccam {

/// Switches the debug printer on or off; off at start.
void SetDebugPrint(bool on);

/// Prints one message behind the library's tag to standard output, in one write, so that messages
/// of several threads do not mix. Messages are cut to 127 characters. Costs one load when off. A
/// closed standard output is no reason to disturb the host.
void OutputDbgPrint(const char *format, ...) __attribute__((format(printf, 1, 2)));

enum class Output : int { kStandardOutput = 1, kStandardError = 2 };

/// Writes a text that hosts may look for, whether messages are on or not, in one write and without
/// the library's tag. It disturbs the host as little as a message does.
void OutputAlways(Output output, const char *text);

} // namespace vsccam
