#include "core/camera_model.h"

#include "base/debug_print.h"

#include <string>

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
    std::string names = NameOf(model.unverified.front());
    for (size_t i = 1; i < model.unverified.size() && model.unverified[i] != StandIn::None; ++i)
        names.append(", ").append(NameOf(model.unverified[i]));
    OutputDbgPrint("not verified on hardware: all; stand-ins: %s\n", names.c_str());
}

} // namespace vsccam
