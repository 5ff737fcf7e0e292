#include "confirm.h"

#include "failure.h"
#include "stop_signals.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>

namespace vsctool {

void Confirm(const std::string &question)
{
    if (isatty(STDIN_FILENO) == 0)
        throw Failure(Exit::kUsage, "nobody to ask; add --yes to write all the same");
    std::fputs(fmt::format("{} [y/N] ", question).c_str(), stderr);
    StopSignals::WaitForInput(STDIN_FILENO);
    const int answer = std::getchar(); // at the end of the input nobody said yes
    if (answer != 'y' && answer != 'Y')
        throw Failure(Exit::kFailure, "nothing was written");
}

} // namespace vsctool
