#include "capture/capture_state.h"

#include <algorithm>
#include <concepts>
#include <iterator>

namespace vsccam {

namespace {

using enum CapturePhase;
using enum CaptureChange;

constexpr unsigned AnyOf(std::same_as<CapturePhase> auto... phases)
{
    return ((1U << static_cast<unsigned>(phases)) | ...);
}

constexpr std::optional<CapturePhase> kWhatIsUnderWay = std::nullopt;
constexpr bool kShowsWorking = true;
constexpr bool kShowsIdle = false;

struct LegalChange {
    CaptureChange change;
    unsigned from;
    std::optional<CapturePhase> to;
    std::optional<bool> showsWorking = std::nullopt; // from then on; else as before
};

/// While the device is lost, the phase beneath changes like any other. Where the host and the
/// worker may end a capture at the same time, the change of whoever comes second changes nothing.
constexpr LegalChange kLegalChanges[] = {
    {HostStartsVideo, AnyOf(Idle, Ready, Failed), Video, kShowsWorking},
    {HostStartsExposure, AnyOf(Idle, Ready, Failed), Exposing, kShowsWorking},
    {HostHasNoThread, AnyOf(Video), Idle, kShowsIdle},
    {HostHasNoThread, AnyOf(Exposing), Failed},
    {HostStops, AnyOf(Video), Idle},
    {HostStops, AnyOf(Idle), kWhatIsUnderWay},
    {HostStops, AnyOf(Exposing, Ready, Failed), Idle, kShowsIdle}, // whatever it came to meanwhile
    {HostTakesFrame, AnyOf(Ready, Failed), Idle, kShowsIdle},
    {HostTakesFrame, AnyOf(Idle, Video, Exposing), kWhatIsUnderWay, kShowsIdle},
    {HostReformats, AnyOf(Ready), Idle, kShowsIdle},
    {HostReformats, AnyOf(Idle, Failed), kWhatIsUnderWay},
    {HostCloses, AnyOf(Idle, Ready, Failed, Lost), kWhatIsUnderWay},
    {WorkerSucceeds, AnyOf(Exposing), Ready},
    {WorkerSucceeds, AnyOf(Idle), kWhatIsUnderWay},
    {WorkerFails, AnyOf(Video, Exposing), Failed},
    {WorkerFails, AnyOf(Idle), kWhatIsUnderWay},
    {WorkerLosesDevice, AnyOf(Idle, Video, Exposing, Lost), Lost},
    {WorkerHasDeviceBack, AnyOf(Lost), kWhatIsUnderWay},
};

const LegalChange *Find(CaptureChange change, CapturePhase from)
{
    const auto *found = std::ranges::find_if(kLegalChanges, [=](const LegalChange &legal) {
        return legal.change == change && (legal.from & AnyOf(from)) != 0;
    });
    return found == std::end(kLegalChanges) ? nullptr : found;
}

} // namespace

ExposureStatus CaptureState::Status() const
{
    if (UnderWay() == Ready)
        return kExpSuccess;
    if (UnderWay() == Failed)
        return kExpFailed;
    return showsWorking ? kExpWorking : kExpIdle;
}

std::optional<CaptureState> After(CaptureState state, CaptureChange change)
{
    const LegalChange *legal = Find(change, state.phase);
    const bool staysLost = !legal && state.Lost();
    if (staysLost)
        legal = Find(change, state.beneath);
    if (!legal)
        return std::nullopt;
    const CapturePhase underWay = state.UnderWay();
    const CapturePhase next = legal->to.value_or(underWay);
    if (next == Lost)
        state.beneath = underWay;
    (staysLost ? state.beneath : state.phase) = next;
    if (state.Running())
        state.single = state.UnderWay() == Exposing;
    state.showsWorking = legal->showsWorking.value_or(state.showsWorking);
    return state;
}

} // namespace vsccam
