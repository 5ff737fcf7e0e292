#include "vscsim/serve.h"

#include "vscsim/usbip_server.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <chrono>
#include <cstdio>
#include <memory>

namespace vscsim {
namespace {

/// Can be read once the program shall end.
OwnedFd EndSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return OwnedFd(signalfd(-1, &signals, SFD_CLOEXEC));
}

UsbIpCameras MakeCameras(const std::vector<BusDevice> &devices, double awaySeconds)
{
    const auto away = std::chrono::duration_cast<Time>(std::chrono::duration<double>(awaySeconds));
    UsbIpCameras cameras;
    for (const BusDevice &device : devices)
        cameras.push_back(
            std::make_unique<UsbIpCamera>(*device.model, device.options, cameras.size() + 1, away));
    return cameras;
}

/// An address by which this machine reaches itself where it listens on all of them.
std::string ToReach(const std::string &address)
{
    if (address == "0.0.0.0")
        return "127.0.0.1";
    return address == "::" ? "::1" : address;
}

void TellHowToAttach(const UsbIpServer &server, const std::string &address)
{
    const uint16_t port = server.Port();
    const std::string toPort =
        port != usbip::kTcpPort ? fmt::format("--tcp-port {} ", port) : std::string();
    fmt::print(stderr, "vscsim: serving on {} port {}; to attach:\n  sudo modprobe vhci-hcd\n",
               address, port);
    for (const auto &camera : server.Cameras())
        fmt::print(stderr, "  sudo usbip {}attach -r {} -b {}  # {}\n", toPort, ToReach(address),
                   camera->Described().busId, camera->Model().name);
}

} // namespace

void Serve(const std::vector<BusDevice> &devices, const ServeOptions &options)
{
    const OwnedFd end = EndSignals();
    UsbIpServer server(MakeCameras(devices, options.awaySeconds), options.address, options.port);
    TellHowToAttach(server, options.address);
    server.Run(end.Get());
}

} // namespace vscsim
