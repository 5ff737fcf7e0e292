#include "vscsim/usbip_session.h"

#include <algorithm>
#include <utility>
#include <variant>

namespace vscsim {
namespace {

// With more than this to fetch, a client is not listened to.
constexpr size_t kMostUnsent = size_t{4} << 20;

std::span<const uint8_t> BodyOf(const UsbIpCamera::Reply &reply)
{
    return reply.urb ? reply.urb->Received() : std::span<const uint8_t>{};
}

size_t SizeOf(const UsbIpCamera::Reply &reply)
{
    return reply.head.size() + BodyOf(reply).size();
}

/// A reply keeps the whole buffer of its transfer, however little came into it.
size_t MemoryOf(const UsbIpCamera::Reply &reply)
{
    return reply.head.size() + (reply.urb ? reply.urb->length : 0);
}

} // namespace

UsbIpSession::~UsbIpSession()
{
    if (m_camera)
        m_camera->Detach();
}

bool UsbIpSession::Listens() const
{
    return (m_phase == Phase::Asking || m_phase == Phase::Attached) && m_unsentMemory < kMostUnsent;
}

bool UsbIpSession::Over() const
{
    return m_phase == Phase::Broken || (m_phase == Phase::Leaving && !HasUnsent());
}

void UsbIpSession::Receive(std::span<const uint8_t> bytes, Time now)
{
    m_received.insert(m_received.end(), bytes.begin(), bytes.end());
    TakeReceived(now);
}

/// Takes what has come, as long as the answers are fetched.
void UsbIpSession::TakeReceived(Time now)
{
    std::span<const uint8_t> rest = m_received;
    while (const size_t taken = Listens() ? TakeNext(rest, now) : 0) {
        rest = rest.subspan(taken);
        CollectReplies();
    }
    m_received.erase(m_received.begin(),
                     m_received.end() - static_cast<std::ptrdiff_t>(rest.size()));
}

/// Takes one message.
/// @return its length; 0 when there is none
size_t UsbIpSession::TakeNext(std::span<const uint8_t> bytes, Time now)
{
    const auto take = [this, now](const auto &message) { return Take(message, now); };
    if (m_phase == Phase::Asking)
        return std::visit(take, usbip::ParseRequest(bytes));
    if (m_phase == Phase::Attached && !m_camera->Gone())
        return std::visit(take, usbip::ParseCommand(bytes));
    return 0;
}

size_t UsbIpSession::Take(usbip::Incomplete, Time)
{
    return 0;
}

size_t UsbIpSession::Take(usbip::Garbage, Time)
{
    m_phase = Phase::Broken;
    return 0;
}

size_t UsbIpSession::Take(const usbip::ListRequest &request, Time now)
{
    std::vector<usbip::Device> present;
    for (const auto &camera : m_cameras)
        if (camera->Present(now))
            present.push_back(camera->Described());
    Send({usbip::EncodeList(present)});
    m_phase = Phase::Leaving;
    return request.Size();
}

size_t UsbIpSession::Take(const usbip::AttachRequest &request, Time now)
{
    const auto found = std::ranges::find_if(m_cameras, [&request, now](const auto &camera) {
        return camera->Described().busId == request.busId && camera->Present(now);
    });
    m_phase = Phase::Leaving;
    if (found == m_cameras.end()) {
        Send({usbip::EncodeRefused(usbip::Refusal::NoSuchDevice)});
    } else if ((*found)->Attached()) {
        Send({usbip::EncodeRefused(usbip::Refusal::Busy)});
    } else {
        m_camera = found->get();
        m_camera->Attach();
        Send({usbip::EncodeAttached(m_camera->Described())});
        m_phase = Phase::Attached;
    }
    return request.Size();
}

size_t UsbIpSession::Take(const usbip::Submit &submit, Time now)
{
    m_camera->Take(submit, now);
    return submit.Size();
}

size_t UsbIpSession::Take(const usbip::Unlink &unlink, Time now)
{
    m_camera->Take(unlink, now);
    return unlink.Size();
}

Time UsbIpSession::Advance(Time now)
{
    if (!m_camera)
        return kNever;
    const Time next = m_camera->Advance(now);
    CollectReplies();
    return next;
}

void UsbIpSession::CollectReplies()
{
    if (!m_camera)
        return;
    while (auto reply = m_camera->TakeReply())
        Send(std::move(*reply));
    if (m_camera->Gone())
        m_phase = Phase::Broken;
}

void UsbIpSession::Send(UsbIpCamera::Reply reply)
{
    m_unsentMemory += MemoryOf(reply);
    m_unsent.push_back(std::move(reply));
}

std::array<std::span<const uint8_t>, 2> UsbIpSession::Unsent() const
{
    if (m_unsent.empty())
        return {};
    const std::span<const uint8_t> head = m_unsent.front().head;
    const std::span<const uint8_t> body = BodyOf(m_unsent.front());
    const size_t ofHead = std::min(m_sentOfFirst, head.size());
    return {head.subspan(ofHead), body.subspan(m_sentOfFirst - ofHead)};
}

void UsbIpSession::Sent(size_t bytes, Time now)
{
    m_sentOfFirst += bytes;
    if (m_unsent.empty() || m_sentOfFirst < SizeOf(m_unsent.front()))
        return;
    m_unsentMemory -= MemoryOf(m_unsent.front());
    m_unsent.pop_front();
    m_sentOfFirst = 0;
    if (m_unsent.empty())
        TakeReceived(now);
}

} // namespace vscsim
