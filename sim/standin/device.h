#pragma once

#include "camera/camera.h"
#include "standin/bus.h"

#include <libusb.h>

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// libusb's opaque types, as the stand-in fills them.
struct libusb_device {
    int number; // on the simulated bus
    uint8_t address;
    vscsim::Ports ports;
    libusb_speed speed;
    libusb_device_descriptor descriptor;
    bool readableDescriptor;
    bool attached = true;
    int references = 1; // the program's, and one of the bus while the device is attached
};

struct libusb_device_handle {
    libusb_device *device;
    bool claimed = false; // interface 0, the only one
};

namespace vscsim {

/// What libusb knows of a transfer besides the public record.
struct Transfer {
    enum class State {
        Idle,
        Queued,     // at the device
        Cancelling, // taken from the device, about to complete
        Completed,  // waits for a thread that handles events
    };

    libusb_transfer *usb = nullptr;
    bool synchronous = false; // belongs to a blocking call, has no callback
    libusb_device *device = nullptr;
    State state = State::Idle;
    libusb_transfer_status status = LIBUSB_TRANSFER_COMPLETED;
    size_t filled = 0;
    Time endsAt = kNever;            // Queued: its time-out; Cancelling: its completion
    std::vector<uint8_t> received{}; // before a cancel that takes its time
    bool done = false;               // of a synchronous transfer

    bool InFlight() const { return state != State::Idle; }
};

/// The device side of the bus: a camera, or something foreign, and what is queued at its endpoints.
/// Time arrives from outside, in order.
class Device {
  public:
    Device(const ModelFacts &model, CameraOptions options);
    Device(uint16_t vendorId, uint16_t productId);

    /// The libusb view of it, as it appears on the bus.
    libusb_device Describe() const;

    bool IsCamera() const { return m_camera.has_value(); }
    Camera &TheCamera() { return *m_camera; }

    bool IsMute() const { return m_camera && m_camera->IsMute(); }

    void PowerCycle(std::optional<LinkSpeed> link = {});
    /// Makes it ready to come back, if its fault plan lets it.
    std::optional<Return> PlugInAgain();

    void Queue(Transfer &transfer, Time now);
    void Unqueue(Transfer &transfer, Time now);
    void UnqueueAll() { m_endpoints.clear(); }

    /// The next time at which something can happen by itself.
    Time NextEvent() const;

    /// Does what is due at `now`. Transfers that are done are appended with their status and leave
    /// their queue.
    void Serve(Time now, std::vector<Transfer *> &done);

    void ClearHalt(uint8_t endpoint, Time now);
    AfterReset Reset(Time now);

    std::vector<std::string> traffic;

  private:
    struct Endpoint {
        std::deque<Transfer *> queue;
        Time readyAt = kNever; // when to look at the head of the queue
    };

    /// How the transfer ended; nothing while it goes on.
    using Ending = std::optional<libusb_transfer_status>;

    Ending ServeControl(const libusb_transfer &usb, Transfer &transfer, Time now);
    Ending ServeBulk(const libusb_transfer &usb, Transfer &transfer, Endpoint &endpoint, Time now);
    void LookAtBulkAgain(Time now);

    const ModelFacts *m_model = nullptr;
    CameraOptions m_options;
    uint16_t m_vendorId = 0;
    uint16_t m_productId = 0;
    std::optional<Camera> m_camera;
    std::map<uint8_t, Endpoint> m_endpoints;
};

} // namespace vscsim
