#pragma once

#include "standin/bus.h"
#include "standin/call_plan.h"
#include "standin/device.h"
#include "standin/virtual_clock.h"

#include <libusb.h>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace vscsim {

/// The bus and libusb's objects on it. The tests reach it through Bus, the program through the
/// libusb functions. All calls need the lock; those that take it release it while they wait.
class Core {
  public:
    using Lock = std::unique_lock<std::mutex>;

    static Core &Instance();

    Lock Acquire() { return Lock(m_mutex); }
    /// For calls of the program, before which another thread may go first.
    Lock AcquireInTurn()
    {
        m_clock->Yield();
        return Acquire();
    }

    void UseClock(BusClock *clock) { m_clock = clock ? clock : &m_steadyClock; }
    Time Now() { return m_clock->Now(); }
    void Sleep(Lock &lock, Time time, const char *what);

    // The bus
    void Reset(uint64_t seed);
    int Plug(Device device, Ports ports = {});
    void Attach(int number);
    void Detach(int number);
    void DetachAt(int number, Time at);
    void Leave(int number);
    std::optional<Time> AwayFor(int number);
    void Replug(int number, const Place &place);
    /// Lets a device that was detached come back at that time, after a power cycle.
    void AttachAnew(int number, Time at);
    Device &DeviceOf(int number) { return m_slots.at(static_cast<size_t>(number))->device; }
    Device &DeviceOf(const libusb_device &device) { return DeviceOf(device.number); }

    /// Brings the bus to the present: whatever hardware would have done meanwhile happens now, at
    /// its own time.
    void CatchUp();

    // Contexts, devices, handles. A pointer that is none of ours is null and recorded as misuse.
    int contextReferences = 0;
    std::set<libusb_device **> deviceLists;
    libusb_device *Known(libusb_device *device, const char *function);
    libusb_device_handle *Known(libusb_device_handle *handle, const char *function);
    const std::vector<libusb_device *> &AttachedDevices() const { return m_attached; }
    void Unreference(libusb_device *device, const char *function);
    libusb_device_handle *Open(libusb_device &device);
    void Close(Lock &lock, libusb_device_handle *handle);
    bool ClaimedBySomeone(const libusb_device &device) const;

    // Transfers
    libusb_transfer *Allocate(int isoPackets);
    void Free(libusb_transfer *usb);
    int Submit(libusb_transfer *usb);
    int Cancel(libusb_transfer *usb);
    int RunSynchronously(Lock &lock, libusb_transfer &usb, const char *function);
    /// Transfers that nobody has cancelled yet.
    bool HasQueued(const libusb_device &device, std::optional<uint8_t> endpoint = {}) const;
    void CompleteAll(const libusb_device &device, libusb_transfer_status status);

    /// One round of event handling: returns once something was handled, by this thread or another
    /// one, when `done` holds, or at the deadline.
    int HandleEvents(Lock &lock, Time deadline, const std::function<bool()> &done,
                     const char *function);
    void InterruptEventHandler();
    bool InsideCallback() const { return m_dispatcher == std::this_thread::get_id(); }

    Bus::Objects LiveObjects() const;

    CallPlan calls;
    std::vector<std::string> misuse;
    void Misuse(const char *function, const char *text);
    size_t usbfsLimit = 0;
    Time cancelDelay{0};

  private:
    struct Slot {
        Device device;
        Ports ports;
        libusb_device *attached = nullptr;
        Time leavesAt = kNever;  // by itself,
        Time returnsAt = kNever; // as well
        Time leftAt{0};
    };
    struct Handler {
        bool notified = false; // something was handled, or the handler is to return
    };

    Core() = default;

    Transfer *Find(libusb_transfer *usb, const char *function);
    int Start(Transfer &transfer);
    void TakeBack(Transfer &transfer, libusb_transfer_status status, Time delay);
    void Complete(Transfer &transfer, libusb_transfer_status status);
    void Forget(Transfer &transfer);
    size_t UsbfsMemoryInUse() const;

    Time NextEvent() const;
    void Process(Time at);
    const Handler *Elected() const;
    void Dispatch(Lock &lock);
    void CallBack(Lock &lock, Transfer &transfer);
    void NotifyHandlers();
    void WaitUntil(Lock &lock, Time deadline, const char *what);
    void Changed() { m_clock->Wake(); }

    std::mutex m_mutex;
    SteadyClock m_steadyClock;
    BusClock *m_clock = &m_steadyClock;
    Time m_caughtUp{0}; // the bus is simulated up to here
    uint64_t m_seed = 1;

    std::vector<std::unique_ptr<Slot>> m_slots;
    std::vector<libusb_device *> m_attached; // in the order of plugging
    uint8_t m_lastAddress = 0;
    std::vector<std::unique_ptr<libusb_device>> m_devices; // also gone ones: no address comes twice
    std::vector<std::unique_ptr<libusb_device_handle>> m_handles;

    std::unordered_map<libusb_transfer *, Transfer> m_transfers;
    std::vector<Transfer *> m_pending;  // queued or cancelling
    std::deque<Transfer *> m_completed; // in the order of completion
    uint64_t m_dispatched = 0;          // transfers handed back so far
    std::vector<Handler *> m_handlers;  // threads that handle events
    std::thread::id m_dispatcher;       // the one that runs callbacks
    bool m_interrupted = false;         // the next handler returns at once
};

} // namespace vscsim
