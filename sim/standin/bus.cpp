#include "standin/bus.h"

#include "standin/core.h"

#include <stdexcept>
#include <utility>

namespace vscsim {

Bus &Bus::Instance()
{
    static Bus bus;
    return bus;
}

std::unique_lock<std::mutex> Bus::Guard()
{
    auto lock = Core::Instance().Acquire();
    Core::Instance().CatchUp();
    return lock;
}

Camera &Bus::CameraOf(int device)
{
    Device &found = Core::Instance().DeviceOf(device);
    if (!found.IsCamera())
        throw std::invalid_argument("the device is no camera");
    return found.TheCamera();
}

void Bus::UseClock(BusClock *clock)
{
    const auto lock = Core::Instance().Acquire();
    Core::Instance().UseClock(clock);
}

void Bus::Reset(uint64_t seed)
{
    const auto lock = Core::Instance().Acquire();
    Core::Instance().Reset(seed);
}

int Bus::Plug(std::string_view model, CameraOptions options, Ports ports)
{
    const ModelFacts *facts = FindModel(model);
    if (!facts)
        throw std::invalid_argument("no such model: " + std::string(model));
    const auto guard = Guard();
    return Core::Instance().Plug(Device(*facts, std::move(options)), std::move(ports));
}

int Bus::PlugForeign(uint16_t vendorId, uint16_t productId)
{
    const auto guard = Guard();
    return Core::Instance().Plug(Device(vendorId, productId));
}

void Bus::Unplug(int device)
{
    const auto guard = Guard();
    Core::Instance().Detach(device);
}

void Bus::UnplugAfter(int device, Time delay)
{
    const auto guard = Guard();
    Core::Instance().DetachAt(device, Core::Instance().Now() + delay);
}

std::optional<Time> Bus::AwayFor(int device)
{
    const auto guard = Guard();
    return Core::Instance().AwayFor(device);
}

void Bus::Replug(int device, const Place &place)
{
    const auto guard = Guard();
    Core::Instance().Replug(device, place);
}

std::vector<std::string> Bus::TakeTraffic(int device)
{
    const auto guard = Guard();
    return std::exchange(Core::Instance().DeviceOf(device).traffic, {});
}

uint64_t Bus::Calls(std::string_view function) const
{
    const auto lock = Core::Instance().Acquire();
    return Core::Instance().calls.Count(function);
}

void Bus::FailCalls(uint64_t from, uint64_t count, int code, std::string_view function)
{
    const auto lock = Core::Instance().Acquire();
    Core::Instance().calls.Fail(from, count, code, function);
}

void Bus::MendCalls()
{
    const auto lock = Core::Instance().Acquire();
    Core::Instance().calls.Mend();
}

void Bus::UnplugAtCall(int device, uint64_t call)
{
    const auto lock = Core::Instance().Acquire();
    Core::Instance().calls.Unplug(device, call);
}

void Bus::LimitUsbfsMemory(size_t bytes)
{
    const auto lock = Core::Instance().Acquire();
    Core::Instance().usbfsLimit = bytes;
}

void Bus::DelayCancel(Time delay)
{
    const auto lock = Core::Instance().Acquire();
    Core::Instance().cancelDelay = delay;
}

Bus::Objects Bus::LiveObjects() const
{
    const auto lock = Core::Instance().Acquire();
    return Core::Instance().LiveObjects();
}

std::vector<std::string> Bus::TakeMisuse()
{
    const auto lock = Core::Instance().Acquire();
    return std::exchange(Core::Instance().misuse, {});
}

} // namespace vscsim
