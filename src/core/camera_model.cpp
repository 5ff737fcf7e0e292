#include "core/camera_model.h"

#include "base/debug_print.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace vsccam {

namespace {

/// By StandIn. Programs read the line: the names stay as they are.
constexpr const char *kNames[] = {
    "none",        "register list", "sequencer program", "register addresses",
    "clock codes", "line limits",   "frame offsets",     "bandwidth",
    "FPGA set-up", "firmware",      "everything",
};
static_assert(std::size(kNames) == static_cast<size_t>(StandIn::Everything) + 1);

const char *NameOf(StandIn part)
{
    return kNames[static_cast<size_t>(part)];
}

} // namespace

void PrintUnverified(const CameraModel &model)
{
    char names[128] = {};
    size_t length = 0;
    for (const StandIn part : model.unverified) {
        if (length > 0 && part == StandIn::None)
            break;
        const int added = std::snprintf(names + length, sizeof names - length, "%s%s",
                                        length > 0 ? ", " : "", NameOf(part));
        length = std::min(length + static_cast<size_t>(std::max(added, 0)), sizeof names - 1);
    }
    OutputDbgPrint("not verified on hardware: all; stand-ins: %s\n", names);
}

} // namespace vsccam
