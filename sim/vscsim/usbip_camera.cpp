#include "vscsim/usbip_camera.h"

#include <linux/usb/ch9.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

namespace vscsim {
namespace {

// Of transfers in flight, more than any program has; what a client can make this program allocate.
constexpr size_t kMemoryLimit = size_t{256} << 20;

usbip::Device Describe(const Camera &camera, uint32_t number)
{
    return {.busId = "1-" + std::to_string(number),
            .bus = 1,
            .address = number + 1, // the root hub is 1
            .speed = camera.Options().link == LinkSpeed::Super ? uint32_t{USB_SPEED_SUPER}
                                                               : uint32_t{USB_SPEED_HIGH},
            .vendorId = VendorId(),
            .productId = camera.Model().productId,
            .configuration = Descriptors::kConfiguration};
}

bool IsStandard(const ControlRequest &request)
{
    return (request.requestType & USB_TYPE_MASK) == USB_TYPE_STANDARD;
}

} // namespace

UsbIpCamera::UsbIpCamera(const ModelFacts &model, const CameraOptions &options, uint32_t number,
                         Time away)
    : m_device(model, options, kMemoryLimit), m_described(Describe(m_device.TheCamera(), number)),
      m_away(away)
{
}

void UsbIpCamera::Attach()
{
    m_attached = true;
}

void UsbIpCamera::Detach()
{
    m_device.Forget(this);
    m_device.PowerCycle();
    m_replies.clear();
    m_attached = m_gone = m_configured = m_askedAnew = false;
}

void UsbIpCamera::Take(const usbip::Submit &submit, Time now)
{
    (void)Advance(now); // the camera's past comes before the request
    SubmitToCamera(submit, now);
    (void)Advance(now);
}

void UsbIpCamera::SubmitToCamera(const usbip::Submit &submit, Time now)
{
    const bool control = submit.endpoint == 0;
    if (control) {
        const ControlRequest request = DecodedSetup(submit.setup);
        if (const auto status = ChangeState(request, now)) {
            Answer(submit.number, *status);
            return;
        }
    }
    const size_t length = submit.length + (control ? Urb::kSetupBytes : 0);
    std::unique_ptr<uint8_t[]> data;
    if (m_device.HasRoomFor(length))
        data.reset(new (std::nothrow) uint8_t[length]);
    if (!data) {
        Answer(submit.number, -ENOMEM);
        return;
    }
    const uint8_t direction = !control && submit.in ? USB_DIR_IN : 0;
    Urb urb = {.owner = this,
               .name = submit.number,
               .endpoint = static_cast<uint8_t>(submit.endpoint | direction),
               .length = length,
               .data = std::move(data),
               .wantsAll = submit.shortIsError};
    if (control) {
        std::ranges::copy(submit.setup, urb.data.get());
        std::ranges::copy(submit.data, urb.data.get() + Urb::kSetupBytes);
    }
    if (m_device.Submit(std::move(urb), now) != 0)
        Answer(submit.number, -EPIPE); // there is no such endpoint
}

/// Standard requests with which a kernel changes what the device is about; nothing for others.
std::optional<int> UsbIpCamera::ChangeState(const ControlRequest &request, Time now)
{
    if (!IsStandard(request))
        return std::nullopt;
    if (request.In()) {
        m_askedAnew |=
            request.request == USB_REQ_GET_DESCRIPTOR && request.value >> 8 == USB_DT_DEVICE;
        return std::nullopt;
    }
    switch (request.request) {
    case USB_REQ_SET_CONFIGURATION:
        return Configure(request.value, now);
    case USB_REQ_CLEAR_FEATURE:
        if (request.requestType != USB_RECIP_ENDPOINT || request.value != USB_ENDPOINT_HALT)
            return 0;
        if (m_device.TheCamera().IsMute())
            return std::nullopt; // gets no answer; what a reset of the bus needs does
        if (request.index == m_device.ImageEndpoint())
            m_device.ClearHalt(now);
        return 0;
    case USB_REQ_SET_FEATURE: // of power management
    case USB_REQ_SET_SEL:
    case USB_REQ_SET_ISOCH_DELAY:
    case USB_REQ_SET_INTERFACE:
        return 0;
    default:
        return -EPIPE;
    }
}

/// A reset of the bus happens in the kernel that has the camera attached, and does not come through
/// here. Afterwards it reads the device descriptor again and sets the configuration.
int UsbIpCamera::Configure(unsigned value, Time now)
{
    if (value > Descriptors::kConfiguration)
        return -EPIPE;
    const bool wasReset = m_configured && m_askedAnew;
    m_configured = value == Descriptors::kConfiguration;
    m_askedAnew = false;
    if (!wasReset)
        m_device.ClearHalt(now);
    else if (m_device.Reset(now) != AfterReset::SameDevice)
        Leave(now); // one that boots comes back as another device
    return 0;
}

void UsbIpCamera::Take(const usbip::Unlink &unlink, Time now)
{
    (void)Advance(now);
    const bool waiting = m_device.Cancel(this, unlink.target, now);
    if (waiting)
        (void)m_device.TakeFinished(this); // its only one, as the others have been answered
    m_replies.push_back({usbip::EncodeUnlinked(unlink.number, waiting ? -ECONNRESET : 0)});
}

Time UsbIpCamera::Advance(Time now)
{
    if (!m_attached || m_gone)
        return kNever;
    const Time next = m_device.Advance(now);
    AnswerFinished();
    if (m_device.Gone())
        Leave(now);
    return next;
}

void UsbIpCamera::AnswerFinished()
{
    while (auto urb = m_device.TakeFinished(this)) {
        const auto head = usbip::EncodeSubmitted(static_cast<uint32_t>(urb->name), urb->status,
                                                 static_cast<uint32_t>(urb->filled));
        m_replies.push_back({head, std::move(urb)});
    }
}

void UsbIpCamera::Answer(uint32_t number, int status, uint32_t length)
{
    m_replies.push_back({usbip::EncodeSubmitted(number, status, length)});
}

void UsbIpCamera::Leave(Time now)
{
    const auto back = m_device.ComesBack();
    m_gone = true;
    m_backAt = now + (back ? back->after : m_away);
}

std::optional<UsbIpCamera::Reply> UsbIpCamera::TakeReply()
{
    if (m_replies.empty())
        return std::nullopt;
    Reply reply = std::move(m_replies.front());
    m_replies.pop_front();
    return reply;
}

} // namespace vscsim
