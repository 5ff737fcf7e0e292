#pragma once

#include "camera/camera.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vscsim {

class BusClock;

/// The ports from a root hub of the link's speed down to a device.
using Ports = std::vector<uint8_t>;

/// Where a device is plugged in: by default where it was before.
struct Place {
    Ports ports = {};
    std::optional<LinkSpeed> link = {};
};

/// The simulated bus behind the in-process libusb functions. Cameras are listed in the order in
/// which they were plugged in. Thread-safe. The bus itself lives as long as the process.
class Bus {
  public:
    static Bus &Instance();

    /// Takes time from `clock` from now on, from the system for nullptr. To be called only while no
    /// device is plugged in and no thread uses libusb.
    void UseClock(BusClock *clock);

    /// Unplugs everything and forgets traffic, faults and counts. Objects of libusb that the
    /// program still holds are reported first (see LiveObjects).
    void Reset(uint64_t seed = 1);

    /// Plugs in a camera, at a port of its own unless one is given, and returns its number on the
    /// bus, which names it from then on.
    int Plug(std::string_view model, CameraOptions options = {}, Ports ports = {});

    /// Plugs in a device that is no camera.
    int PlugForeign(uint16_t vendorId, uint16_t productId);

    void Unplug(int device);
    /// Unplugs it after this time, say in the middle of a frame.
    void UnplugAfter(int device, Time delay);
    /// How long the device has been off the bus; nothing while it is on it.
    std::optional<Time> AwayFor(int device);
    /// The same camera comes back: last in the list, at a new address, with registers as after
    /// power-on; its memories are kept, its fault plan starts anew.
    void Replug(int device, const Place &place = {});

    /// The simulated camera, under the bus lock for as long as `look` runs.
    template <class Look> auto With(int device, Look look)
    {
        const auto guard = Guard();
        return look(CameraOf(device));
    }

    /// What reached the device since the last call: control requests, endpoint halts, resets, in
    /// order, one line each: "sony 3001=01", "sony 3009?", "sensor 301A=10D8", "sensor 3009?",
    /// "fpga 01=01", "fpga 1D?", "cmd A9", "gpif32 off", "firmware?", "host?", "temp?",
    /// "flash read 040000+2048", "flash write 070000+256", "flash erase 7", "flash status 7",
    /// "guide on 2", "guide off 2", "cooler 255", "transfer count 43", "clear halt 81", "reset",
    /// "configuration 1", "claim 0", "release 0", "open", "close"; anything else
    /// "40 A0 E600 0000 len 1". Bulk transfers do not appear, nor calls that FailCalls fails.
    std::vector<std::string> TakeTraffic(int device);

    /// Whether the calling thread is in a libusb function: what it needs there is the simulation's.
    static bool InCall();

    /// Calls of libusb functions since Reset, all or those of one function; the next one has this
    /// number. The functions that only name error codes or versions do not count.
    uint64_t Calls(std::string_view function = {}) const;

    /// Makes libusb calls from number `from` on, `count` of them, fail with the libusb code
    /// (negative). Functions that cannot fail are passed over, libusb_alloc_transfer returns null,
    /// and LIBUSB_ERROR_TIMEOUT comes after the time-out of the transfer. "function" narrows it to
    /// one function by name, e.g. "libusb_submit_transfer"; then only its calls are numbered.
    /// "completion" stands for the transfers that the program submitted and that completed: such a
    /// one is handed back as failed, with half of what it received.
    void FailCalls(uint64_t from, uint64_t count, int code, std::string_view function = {});
    /// From now on no call fails any more, until FailCalls is called again.
    void MendCalls();

    /// Unplugs the device when the libusb call with this number begins.
    void UnplugAtCall(int device, uint64_t call);

    /// Memory for transfers in flight as the kernel limits it, in bytes; 0: no limit (default).
    void LimitUsbfsMemory(size_t bytes);

    /// Transfers that the program cancels complete after this time (0 by default), or never
    /// (kNever). What they received is then written to their buffer once more, as the kernel does
    /// when it hands a transfer back.
    void DelayCancel(Time delay);

    /// libusb objects that the program holds.
    struct Objects {
        int contextReferences = 0;
        int deviceLists = 0;
        int deviceReferences = 0; // also those of lists and handles
        int handles = 0;
        int claimedInterfaces = 0;
        int transfers = 0;
        int transfersInFlight = 0;
    };
    Objects LiveObjects() const;

    /// Uses of libusb that the real one or the kernel would refuse, warn of or crash on (a transfer
    /// freed in flight or submitted twice, a claim without open, a device unreferenced too often,
    /// an endpoint cleared or a device reset while transfers are queued that nobody cancelled, a
    /// bulk transfer without a claimed interface), one line each.
    std::vector<std::string> TakeMisuse();

  private:
    Bus() = default;
    std::unique_lock<std::mutex> Guard();
    Camera &CameraOf(int device);
};

} // namespace vscsim
