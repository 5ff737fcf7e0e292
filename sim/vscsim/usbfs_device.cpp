#include "vscsim/usbfs_device.h"

#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

namespace vscsim {
namespace {

// The abilities of an xHCI controller. With scatter-gather libusb sends each transfer in one piece,
// so that continued transfers are not needed and not offered.
constexpr uint32_t kCapabilities = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                                   USBDEVFS_CAP_BULK_SCATTER_GATHER |
                                   USBDEVFS_CAP_REAP_AFTER_DISCONNECT;

constexpr size_t kUrbOverhead = 512; // what the kernel books besides the buffer, about
constexpr size_t kSetupBytes = 8;

template <class T> bool ReadAt(ClientMemory &memory, uintptr_t address, T &value)
{
    return memory.Read(address, {reinterpret_cast<uint8_t *>(&value), sizeof value});
}

template <class T> bool WriteAt(ClientMemory &memory, uintptr_t address, const T &value)
{
    return memory.Write(address, {reinterpret_cast<const uint8_t *>(&value), sizeof value});
}

/// The status of a transfer that ended so; a time-out leaves it with the device.
int StatusOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Ok:
        return 0;
    case Outcome::Stall:
        return -EPIPE;
    case Outcome::IoError:
        return -EPROTO;
    case Outcome::Overflow:
        return -EOVERFLOW;
    case Outcome::NoDevice:
        return -ESHUTDOWN;
    case Outcome::Timeout:
        break;
    }
    return -EINPROGRESS;
}

ControlRequest Decoded(std::span<const uint8_t> setup)
{
    const auto word = [setup](size_t at) {
        return static_cast<uint16_t>(setup[at] | setup[at + 1] << 8);
    };
    return {.requestType = setup[0],
            .request = setup[1],
            .value = word(2),
            .index = word(4),
            .length = word(6)};
}

} // namespace

const UsbfsDevice::Answer UsbfsDevice::kAnswers[] = {
    {USBDEVFS_GET_CAPABILITIES, &UsbfsDevice::GetCapabilities, false},
    {USBDEVFS_GET_SPEED, &UsbfsDevice::GetSpeed, false},
    {USBDEVFS_GETDRIVER, &UsbfsDevice::GetDriver, false},
    {USBDEVFS_SETCONFIGURATION, &UsbfsDevice::SetConfiguration, false},
    {USBDEVFS_CLAIMINTERFACE, &UsbfsDevice::Claim, false},
    {USBDEVFS_DISCONNECT_CLAIM, &UsbfsDevice::DisconnectAndClaim, false},
    {USBDEVFS_RELEASEINTERFACE, &UsbfsDevice::Release, false},
    {USBDEVFS_CLEAR_HALT, &UsbfsDevice::ClearHalt, false},
    {USBDEVFS_RESET, &UsbfsDevice::Reset, false},
    {USBDEVFS_SUBMITURB, &UsbfsDevice::Submit, false},
    {USBDEVFS_DISCARDURB, &UsbfsDevice::Discard, true},
    // A call that blocks would lock out the program's other calls on this file, so none does.
    {USBDEVFS_REAPURB, &UsbfsDevice::Reap, true},
    {USBDEVFS_REAPURBNDELAY, &UsbfsDevice::Reap, true},
};

UsbfsDevice::UsbfsDevice(const ModelFacts &model, const CameraOptions &options, size_t memoryLimit)
    : m_camera(model, options), m_descriptors(model, m_camera.Options().link),
      m_memoryLimit(memoryLimit)
{
}

int UsbfsDevice::Ioctl(File file, unsigned long request, uintptr_t argument, ClientMemory &memory,
                       Time now)
{
    const auto *const answer = std::ranges::find(kAnswers, request, &Answer::request);
    if (answer == std::end(kAnswers))
        return -ENOTTY;
    (void)Advance(now); // the camera's past comes before the request
    if (m_gone && !answer->whenGone)
        return -ENODEV;
    return (this->*answer->give)(
        {.file = file, .argument = argument, .memory = memory, .now = now});
}

int UsbfsDevice::GetCapabilities(const Call &call)
{
    return WriteAt(call.memory, call.argument, kCapabilities) ? 0 : -EFAULT;
}

int UsbfsDevice::GetSpeed(const Call &)
{
    return m_camera.Options().link == LinkSpeed::Super ? USB_SPEED_SUPER : USB_SPEED_HIGH;
}

int UsbfsDevice::GetDriver(const Call &)
{
    return -ENODATA; // no kernel driver wants the camera
}

int UsbfsDevice::SetConfiguration(const Call &call)
{
    unsigned value = 0;
    if (!ReadAt(call.memory, call.argument, value))
        return -EFAULT;
    if (m_claimedBy)
        return -EBUSY;
    return value == Descriptors::kConfiguration ? 0 : -EINVAL;
}

int UsbfsDevice::ClaimInterface(File file, unsigned number)
{
    if (number != Descriptors::kInterface)
        return -ENOENT;
    if (m_claimedBy && m_claimedBy != file)
        return -EBUSY;
    m_claimedBy = file;
    return 0;
}

int UsbfsDevice::Claim(const Call &call)
{
    unsigned number = 0;
    if (!ReadAt(call.memory, call.argument, number))
        return -EFAULT;
    return ClaimInterface(call.file, number);
}

int UsbfsDevice::DisconnectAndClaim(const Call &call)
{
    usbdevfs_disconnect_claim claim = {};
    if (!ReadAt(call.memory, call.argument, claim))
        return -EFAULT;
    return ClaimInterface(call.file, claim.interface);
}

int UsbfsDevice::Release(const Call &call)
{
    unsigned number = 0;
    if (!ReadAt(call.memory, call.argument, number))
        return -EFAULT;
    if (number != Descriptors::kInterface || m_claimedBy != call.file)
        return -EINVAL;
    CancelBulk(call.now);
    m_claimedBy = nullptr;
    return 0;
}

int UsbfsDevice::ClearHalt(const Call &call)
{
    unsigned endpoint = 0;
    if (!ReadAt(call.memory, call.argument, endpoint))
        return -EFAULT;
    if (endpoint != ImageEndpoint())
        return -ENOENT;
    m_camera.ClearHalt(ImageEndpoint(), call.now);
    return 0;
}

int UsbfsDevice::Reset(const Call &call)
{
    CancelBulk(call.now);
    switch (m_camera.Reset(call.now)) {
    case AfterReset::SameDevice:
        return 0;
    case AfterReset::NewDevice:
        m_camera.PowerCycle(); // programs that run would not see a new one: it keeps its address
        return 0;
    case AfterReset::Gone:
        break;
    }
    Unplug();
    return -ENODEV;
}

int UsbfsDevice::Submit(const Call &call)
{
    usbdevfs_urb record = {};
    if (!ReadAt(call.memory, call.argument, record))
        return -EFAULT;
    if (record.buffer_length < 0 || (record.flags & USBDEVFS_URB_BULK_CONTINUATION) != 0)
        return -EINVAL;
    if (m_claimedBy && m_claimedBy != call.file)
        return -EBUSY;
    const auto length = static_cast<size_t>(record.buffer_length);
    if (length + kUrbOverhead > m_memoryLimit - m_memoryUsed)
        return -ENOMEM;

    Queue urb; // of one, which moves from queue to queue
    urb.push_back({.file = call.file,
                   .address = call.argument,
                   .type = record.type,
                   .endpoint = record.endpoint,
                   .buffer = reinterpret_cast<uintptr_t>(record.buffer),
                   .length = length,
                   .data = std::make_unique_for_overwrite<uint8_t[]>(length)});
    int result = -EINVAL;
    if (record.type == USBDEVFS_URB_TYPE_CONTROL)
        result = SubmitControl(call, urb);
    else if (record.type == USBDEVFS_URB_TYPE_BULK)
        result = SubmitBulk(urb);
    if (result == 0)
        m_memoryUsed += length + kUrbOverhead;
    return result;
}

int UsbfsDevice::SubmitControl(const Call &call, Queue &urb)
{
    Urb &control = urb.front();
    if (control.length < kSetupBytes)
        return -EINVAL;
    if (!call.memory.Read(control.buffer, control.Room()))
        return -EFAULT;
    ControlRequest request = Decoded(control.Room());
    if (request.length > control.length - kSetupBytes)
        return -EINVAL;
    const std::span stage = control.Room().subspan(kSetupBytes, request.length);
    if (!request.In())
        request.data = stage;

    const ControlReply reply = AnswerControl(request, call.now);
    if (request.In()) {
        control.filled = std::min(stage.size(), reply.data.size());
        std::copy_n(reply.data.begin(), control.filled, stage.begin());
    } else if (reply.outcome == Outcome::Ok) {
        control.filled = stage.size();
    }
    if (reply.outcome == Outcome::Timeout)
        m_queues[0].splice(m_queues[0].end(), urb);
    else
        Finish(urb, urb.begin(), StatusOf(reply.outcome));
    if (reply.outcome == Outcome::NoDevice)
        Unplug();
    return 0;
}

ControlReply UsbfsDevice::AnswerControl(const ControlRequest &request, Time now)
{
    if ((request.requestType & USB_TYPE_MASK) != USB_TYPE_STANDARD)
        return m_camera.Control(request, now);
    return m_descriptors.Answer(request);
}

int UsbfsDevice::SubmitBulk(Queue &urb)
{
    const uint8_t endpoint = urb.front().endpoint;
    if (endpoint != ImageEndpoint())
        return -ENOENT;
    m_queues[endpoint].splice(m_queues[endpoint].end(), urb);
    return 0;
}

int UsbfsDevice::Discard(const Call &call)
{
    for (auto &[endpoint, queue] : m_queues) {
        const auto urb = std::ranges::find_if(queue, [&call](const Urb &candidate) {
            return candidate.file == call.file && candidate.address == call.argument;
        });
        if (urb != queue.end()) {
            Cancel(queue, urb, call.now);
            return 0;
        }
    }
    return -EINVAL; // finished meanwhile, or never submitted
}

int UsbfsDevice::Reap(const Call &call)
{
    const auto urb = std::ranges::find(m_done, call.file, &Urb::file);
    if (urb == m_done.end())
        return m_gone ? -ENODEV : -EAGAIN;
    const bool delivered =
        Deliver(*urb, call.memory) && WriteAt(call.memory, call.argument, urb->address);
    m_memoryUsed -= urb->length + kUrbOverhead;
    m_done.erase(urb);
    return delivered ? 0 : -EFAULT;
}

bool UsbfsDevice::Deliver(const Urb &urb, ClientMemory &memory) const
{
    const bool control = urb.type == USBDEVFS_URB_TYPE_CONTROL;
    const uint8_t direction = control ? urb.data[0] : urb.endpoint;
    const size_t start = control ? kSetupBytes : 0;
    if ((direction & USB_DIR_IN) != 0 && urb.filled != 0 &&
        !memory.Write(urb.buffer + start, urb.Room().subspan(start, urb.filled)))
        return false;
    usbdevfs_urb record = {}; // the program's own, of which only the result is ours
    if (!ReadAt(memory, urb.address, record))
        return false;
    record.status = urb.status;
    record.actual_length = static_cast<int>(urb.filled);
    return WriteAt(memory, urb.address, record);
}

void UsbfsDevice::Finish(Queue &queue, Queue::iterator urb, int status)
{
    urb->status = status;
    m_done.splice(m_done.end(), queue, urb);
}

void UsbfsDevice::Cancel(Queue &queue, Queue::iterator urb, Time now)
{
    const bool atHead = urb == queue.begin();
    const uint8_t endpoint = urb->endpoint;
    Finish(queue, urb, -ENOENT);
    if (atHead && endpoint == ImageEndpoint())
        m_camera.GiveUp(endpoint, now);
}

void UsbfsDevice::CancelBulk(Time now)
{
    Queue &queue = m_queues[ImageEndpoint()];
    while (!queue.empty())
        Cancel(queue, queue.begin(), now);
}

void UsbfsDevice::Unplug()
{
    m_gone = true;
    for (auto &[endpoint, queue] : m_queues)
        while (!queue.empty())
            Finish(queue, queue.begin(), -ESHUTDOWN);
}

void UsbfsDevice::Close(File file, Time now)
{
    if (m_claimedBy == file) {
        CancelBulk(now);
        m_claimedBy = nullptr;
    }
    const auto closed = [this, file](const Urb &urb) {
        if (urb.file != file)
            return false;
        m_memoryUsed -= urb.length + kUrbOverhead;
        return true;
    };
    for (auto &[endpoint, queue] : m_queues)
        queue.remove_if(closed);
    m_done.remove_if(closed);
}

Time UsbfsDevice::Advance(Time now)
{
    if (m_gone)
        return kNever;
    return ServeHead(ImageEndpoint(), m_queues[ImageEndpoint()], now);
}

Time UsbfsDevice::ServeHead(uint8_t endpoint, Queue &queue, Time now)
{
    while (!queue.empty()) {
        Urb &head = queue.front();
        const BulkReply reply = m_camera.Bulk(endpoint, head.Room(), head.filled, now);
        head.filled = reply.bytes;
        if (!reply.complete)
            return reply.readyAt;
        Finish(queue, queue.begin(), StatusOf(reply.outcome));
        if (reply.outcome == Outcome::NoDevice) {
            Unplug();
            break;
        }
    }
    return kNever;
}

} // namespace vscsim
