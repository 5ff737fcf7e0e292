#include "core/camera_model.h"

#include "base/debug_print.h"

#include <algorithm>
#include <cstdio>

namespace vsccam {

namespace {

/// Programs read the line: the names stay as they are.
const char *NameOf(StandIn part)
{
    switch (part) {
    case StandIn::None:
        break;
    case StandIn::StartUpList:
        return "register list";
    case StandIn::SequencerProgram:
        return "sequencer program";
    case StandIn::RegisterAddresses:
        return "register addresses";
    case StandIn::ClockCodes:
        return "clock codes";
    case StandIn::LineLimits:
        return "line limits";
    case StandIn::FrameOffsets:
        return "frame offsets";
    case StandIn::Bandwidth:
        return "bandwidth";
    case StandIn::FpgaSetUp:
        return "FPGA set-up";
    case StandIn::Firmware:
        return "firmware";
    case StandIn::Everything:
        return "everything";
    }
    return "none";
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
