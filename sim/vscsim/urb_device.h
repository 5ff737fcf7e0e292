#pragma once

#include "camera/camera.h"
#include "vscsim/descriptors.h"

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <span>

namespace vscsim {

/// A transfer between a host and a device, as Linux knows it.
struct Urb {
    static constexpr size_t kSetupBytes = 8;

    const void *owner = nullptr; // who submitted it
    uint64_t name = 0;           // what the owner calls it
    uint8_t endpoint = 0;        // 0: a control transfer, whose buffer begins with the setup packet
    size_t length = 0;
    std::unique_ptr<uint8_t[]> data = {};
    bool wantsAll = false; // a short packet is an error
    size_t filled = 0;     // behind the setup packet, if there is one
    int status = 0;        // once finished: 0 or a negative error number

    bool IsControl() const { return endpoint == 0; }
    std::span<uint8_t> Buffer() const { return {data.get(), length}; }
    /// What the device has sent.
    std::span<const uint8_t> Received() const;
};

/// The request in a setup packet, without its data.
ControlRequest DecodedSetup(std::span<const uint8_t> setup);

/// A simulated camera to which the kernel's transfers are submitted: they wait at its endpoints
/// until the camera has served them, or their owner gives them up. Not thread-safe.
class UrbDevice {
  public:
    /// @param memoryLimit  bytes of transfers that may be in flight
    UrbDevice(const ModelFacts &model, const CameraOptions &options, size_t memoryLimit);

    const Camera &TheCamera() const { return m_camera; }
    const Descriptors &Described() const { return m_descriptors; }
    uint8_t ImageEndpoint() const { return m_camera.Model().ImageEndpoint(); }

    /// Whether a transfer of that length may be in flight besides those that are.
    bool HasRoomFor(size_t length) const;

    /// Takes a transfer for which there is room.
    /// @return 0, or a negative error number, and nothing has happened
    int Submit(Urb &&transfer, Time now);

    /// The owner gives up a transfer, which finishes with -ENOENT.
    /// @return false when it is unknown or has finished already
    bool Cancel(const void *owner, uint64_t name, Time now);
    void CancelBulk(Time now);

    /// The owner is gone: nobody will ask for its transfers.
    void Forget(const void *owner);

    void ClearHalt(Time now);
    AfterReset Reset(Time now);

    /// It was unplugged, and is plugged in again. After a return that its fault plan has foreseen,
    /// the plan goes on.
    void PowerCycle();

    /// Lets the waiting transfers go on.
    /// @return the time at which something can change by itself
    Time Advance(Time now);

    /// The owner's finished transfers, in the order in which they did.
    std::optional<Urb> TakeFinished(const void *owner);
    bool HasFinished() const { return !m_finished.empty(); }

    /// Whether the camera was unplugged, and whether its fault plan lets it come back.
    bool Gone() const { return m_gone; }
    std::optional<Return> ComesBack() const { return m_camera.ComesBack(); }

  private:
    using Queue = std::list<Urb>;

    int SubmitControl(Queue &urb, Time now);
    int SubmitBulk(Queue &urb);
    ControlReply AnswerControl(const ControlRequest &request, Time now);
    void Finish(Queue &queue, Queue::iterator urb, int status);
    void Cancel(Queue &queue, Queue::iterator urb, Time now);
    void Unplug();
    Time ServeHead(Queue &queue, Time now);

    Camera m_camera;
    Descriptors m_descriptors;
    size_t m_memoryLimit;
    size_t m_memoryUsed = 0;
    bool m_gone = false;
    std::map<uint8_t, Queue> m_queues; // by endpoint; of endpoint 0 those that get no answer
    Queue m_finished;
};

} // namespace vscsim
