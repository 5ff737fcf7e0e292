#include "standin/bus.h"

#include <libusb.h>
#include <vsccam.h>

#include <cstdlib>
#include <vector>

// Captures so many frames. What the library does between two frames, from when it is told of the
// last transfer of one until it queues the first of the next, is counted from outside: it lies
// between the functions below, which the linker has called (--wrap).
// NOLINTBEGIN(bugprone-reserved-identifier): the linker makes the names
extern "C" {

[[gnu::noinline]] void GapBegins()
{
    asm volatile(""); // is not left out
}
[[gnu::noinline]] void GapEnds()
{
    asm volatile("");
}

int __real_libusb_submit_transfer(libusb_transfer *transfer);
int __wrap_libusb_submit_transfer(libusb_transfer *transfer)
{
    GapEnds();
    return __real_libusb_submit_transfer(transfer);
}

int __real_libusb_handle_events_timeout_completed(libusb_context *context, timeval *time,
                                                  int *completed);
int __wrap_libusb_handle_events_timeout_completed(libusb_context *context, timeval *time,
                                                  int *completed)
{
    const int result = __real_libusb_handle_events_timeout_completed(context, time, completed);
    GapBegins();
    return result;
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

int main(int argc, char **argv)
{
    constexpr int kPatienceMs = 60'000; // the emulator is slow
    constexpr int kExposureUs = 99'000; // and so is the camera, for time-outs that bear with it
    vscsim::Bus::Instance().Plug("VSC470MM", {.speed = 0, .framesMadeBeforehand = 1});
    if (getNumberOfConnectedCameras() != 1 || !openCamera(0) || !initCamera())
        return 1;
    setValue(CONTROL_EXPOSURE, kExposureUs, false);
    std::vector<unsigned char> host(static_cast<size_t>(getWidth()) *
                                    static_cast<size_t>(getHeight()));
    startCapture();
    for (int frames = argc > 1 ? std::atoi(argv[1]) : 3; frames > 0; --frames)
        if (!getImageData(host.data(), static_cast<int>(host.size()), kPatienceMs))
            return 1;
    closeCamera();
    return 0;
}
