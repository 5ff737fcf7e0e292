#pragma once

#include "camera/camera.h"
#include "vscsim/descriptors.h"

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <span>

namespace vscsim {

/// The memory of the program that uses a device. It may be touched only while a call of that
/// program is answered: at any other time the program may use, move or free it.
class ClientMemory {
  public:
    virtual bool Read(uintptr_t address, std::span<uint8_t> to) = 0;
    virtual bool Write(uintptr_t address, std::span<const uint8_t> from) = 0;

  protected:
    ~ClientMemory() = default;
};

/// A simulated camera behind the ioctl interface of the kernel's usbfs. Not thread-safe.
class UsbfsDevice {
  public:
    /// One open file of the device node; only its identity counts.
    using File = const void *;

    /// @param memoryLimit  bytes of transfers that may be in flight, as usbfs_memory_mb sets it
    UsbfsDevice(const ModelFacts &model, const CameraOptions &options, size_t memoryLimit);

    const Descriptors &Described() const { return m_descriptors; }
    LinkSpeed Link() const { return m_camera.Options().link; }

    /// Answers an ioctl: its result, or a negative error number.
    int Ioctl(File file, unsigned long request, uintptr_t argument, ClientMemory &memory, Time now);

    /// The file is closed: its transfers and its claim are gone.
    void Close(File file, Time now);

    /// Lets the waiting transfers go on.
    /// @return the time at which something can change by itself
    Time Advance(Time now);

    /// Whether a finished transfer waits to be taken; what poll() tells the program as POLLOUT.
    bool Reapable() const { return !m_done.empty(); }

    /// Whether the camera was unplugged.
    bool Gone() const { return m_gone; }

  private:
    struct Call {
        File file;
        uintptr_t argument;
        ClientMemory &memory;
        Time now;
    };
    struct Answer {
        unsigned long request;
        int (UsbfsDevice::*give)(const Call &);
        bool whenGone; // also after the camera was unplugged
    };
    struct Urb {
        File file = nullptr;
        uintptr_t address = 0; // of its record in the program; what names it
        uint8_t type = 0;
        uint8_t endpoint = 0;
        uintptr_t buffer = 0; // in the program
        size_t length = 0;
        std::unique_ptr<uint8_t[]> data = {}; // what the buffer will hold
        size_t filled = 0;                    // behind the setup packet, if there is one
        int status = 0;                       // once finished

        std::span<uint8_t> Room() const { return {data.get(), length}; }
    };
    using Queue = std::list<Urb>;

    int GetCapabilities(const Call &call);
    int GetSpeed(const Call &call);
    int GetDriver(const Call &call);
    int SetConfiguration(const Call &call);
    int Claim(const Call &call);
    int DisconnectAndClaim(const Call &call);
    int Release(const Call &call);
    int ClearHalt(const Call &call);
    int Reset(const Call &call);
    int Submit(const Call &call);
    int Discard(const Call &call);
    int Reap(const Call &call);
    static const Answer kAnswers[];

    uint8_t ImageEndpoint() const { return m_camera.Model().ImageEndpoint(); }
    int ClaimInterface(File file, unsigned number);
    int SubmitControl(const Call &call, Queue &urb);
    int SubmitBulk(Queue &urb);
    bool Deliver(const Urb &urb, ClientMemory &memory) const;
    ControlReply AnswerControl(const ControlRequest &request, Time now);
    void Finish(Queue &queue, Queue::iterator urb, int status);
    void Cancel(Queue &queue, Queue::iterator urb, Time now);
    void CancelBulk(Time now);
    void Unplug();
    Time ServeHead(uint8_t endpoint, Queue &queue, Time now);

    Camera m_camera;
    Descriptors m_descriptors;
    size_t m_memoryLimit;
    size_t m_memoryUsed = 0;
    File m_claimedBy = nullptr;
    bool m_gone = false;
    std::map<uint8_t, Queue> m_queues; // by endpoint; of endpoint 0 those that get no answer
    Queue m_done;
};

} // namespace vscsim
