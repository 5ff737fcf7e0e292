#include "vscsim/urb_device.h"

#include <linux/usb/ch9.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace vscsim {
namespace {

constexpr size_t kOverhead = 512; // what the kernel books besides the buffer, about

// Several times what any program has; each is looked for among all of them.
constexpr size_t kMostTransfers = 1024;

constexpr size_t Booked(size_t length)
{
    return length + kOverhead;
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

} // namespace

ControlRequest DecodedSetup(std::span<const uint8_t> setup)
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

std::span<const uint8_t> Urb::Received() const
{
    const uint8_t direction = IsControl() ? data[0] : endpoint;
    const size_t start = IsControl() ? kSetupBytes : 0;
    return Buffer().subspan(start, (direction & USB_DIR_IN) != 0 ? filled : 0);
}

UrbDevice::UrbDevice(const ModelFacts &model, const CameraOptions &options, size_t memoryLimit)
    : m_camera(model, options), m_descriptors(model, m_camera.Options().link),
      m_memoryLimit(memoryLimit)
{
}

bool UrbDevice::HasRoomFor(size_t length) const
{
    size_t transfers = m_finished.size();
    for (const auto &[endpoint, queue] : m_queues)
        transfers += queue.size();
    return transfers < kMostTransfers && Booked(length) <= m_memoryLimit - m_memoryUsed;
}

int UrbDevice::Submit(Urb &&transfer, Time now)
{
    const size_t length = transfer.length;
    Queue urb; // of one, which moves from queue to queue
    urb.push_back(std::move(transfer));
    const int result = urb.front().IsControl() ? SubmitControl(urb, now) : SubmitBulk(urb);
    if (result == 0)
        m_memoryUsed += Booked(length);
    return result;
}

int UrbDevice::SubmitControl(Queue &urb, Time now)
{
    Urb &control = urb.front();
    if (control.length < Urb::kSetupBytes)
        return -EINVAL;
    ControlRequest request = DecodedSetup(control.Buffer());
    if (request.length > control.length - Urb::kSetupBytes)
        return -EINVAL;
    const std::span stage = control.Buffer().subspan(Urb::kSetupBytes, request.length);
    if (!request.In())
        request.data = stage;

    const ControlReply reply = AnswerControl(request, now);
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

ControlReply UrbDevice::AnswerControl(const ControlRequest &request, Time now)
{
    if ((request.requestType & USB_TYPE_MASK) != USB_TYPE_STANDARD)
        return m_camera.Control(request, now);
    if (!request.In() && m_camera.IsMute())
        return {.outcome = Outcome::Timeout};
    return m_descriptors.Answer(request);
}

int UrbDevice::SubmitBulk(Queue &urb)
{
    if (urb.front().endpoint != ImageEndpoint())
        return -ENOENT;
    Queue &queue = m_queues[ImageEndpoint()];
    queue.splice(queue.end(), urb);
    return 0;
}

bool UrbDevice::Cancel(const void *owner, uint64_t name, Time now)
{
    for (auto &[endpoint, queue] : m_queues) {
        const auto urb = std::ranges::find_if(queue, [owner, name](const Urb &candidate) {
            return candidate.owner == owner && candidate.name == name;
        });
        if (urb != queue.end()) {
            Cancel(queue, urb, now);
            return true;
        }
    }
    return false;
}

void UrbDevice::Cancel(Queue &queue, Queue::iterator urb, Time now)
{
    const bool atHead = urb == queue.begin();
    const uint8_t endpoint = urb->endpoint;
    Finish(queue, urb, -ENOENT);
    if (atHead && endpoint == ImageEndpoint())
        m_camera.GiveUp(endpoint, now);
}

void UrbDevice::CancelBulk(Time now)
{
    Queue &queue = m_queues[ImageEndpoint()];
    while (!queue.empty())
        Cancel(queue, queue.begin(), now);
}

void UrbDevice::Forget(const void *owner)
{
    const auto forgotten = [this, owner](const Urb &urb) {
        if (urb.owner != owner)
            return false;
        m_memoryUsed -= Booked(urb.length);
        return true;
    };
    for (auto &[endpoint, queue] : m_queues)
        queue.remove_if(forgotten);
    m_finished.remove_if(forgotten);
}

void UrbDevice::ClearHalt(Time now)
{
    m_camera.ClearHalt(ImageEndpoint(), now);
}

AfterReset UrbDevice::Reset(Time now)
{
    CancelBulk(now);
    const AfterReset after = m_camera.Reset(now);
    if (after == AfterReset::Gone)
        Unplug();
    return after;
}

void UrbDevice::PowerCycle()
{
    if (m_camera.ComesBack())
        m_camera.PlugInAgain();
    else
        m_camera.PowerCycle();
    m_gone = false;
}

void UrbDevice::Unplug()
{
    m_gone = true;
    for (auto &[endpoint, queue] : m_queues)
        while (!queue.empty())
            Finish(queue, queue.begin(), -ESHUTDOWN);
}

void UrbDevice::Finish(Queue &queue, Queue::iterator urb, int status)
{
    urb->status = status;
    m_finished.splice(m_finished.end(), queue, urb);
}

std::optional<Urb> UrbDevice::TakeFinished(const void *owner)
{
    const auto urb = std::ranges::find(m_finished, owner, &Urb::owner);
    if (urb == m_finished.end())
        return std::nullopt;
    Urb taken = std::move(*urb);
    m_finished.erase(urb);
    m_memoryUsed -= Booked(taken.length);
    return taken;
}

Time UrbDevice::Advance(Time now)
{
    if (m_gone)
        return kNever;
    m_camera.Advance(now);
    const Time next = ServeHead(m_queues[ImageEndpoint()], now);
    if (!m_gone && m_camera.IsUnplugged()) // by itself
        Unplug();
    return m_gone ? kNever : std::min(next, m_camera.NextFault());
}

Time UrbDevice::ServeHead(Queue &queue, Time now)
{
    while (!queue.empty()) {
        Urb &head = queue.front();
        const BulkReply reply = m_camera.Bulk(head.endpoint, head.Buffer(), head.filled, now);
        head.filled = reply.bytes;
        if (!reply.complete)
            return reply.readyAt;
        const bool tooShort = head.wantsAll && head.filled < head.length;
        const bool remoteError = reply.outcome == Outcome::Ok && tooShort;
        Finish(queue, queue.begin(), remoteError ? -EREMOTEIO : StatusOf(reply.outcome));
        if (reply.outcome == Outcome::NoDevice) {
            Unplug();
            break;
        }
    }
    return kNever;
}

} // namespace vscsim
