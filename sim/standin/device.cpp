#include "standin/device.h"

#include "camera/request_line.h"

#include <algorithm>

namespace vscsim {

using namespace std::chrono_literals;

namespace {

// What a request costs on the wire.
constexpr Time kControlTime = 100us;
// However fast the camera is, a bulk transfer takes some time: otherwise time could stand still in
// a program that only reads.
constexpr Time kBulkTime = 10us;

constexpr Time StartTime(uint8_t endpoint)
{
    return endpoint == 0 ? kControlTime : kBulkTime;
}

libusb_device_descriptor DeviceDescriptor(uint16_t vendorId, uint16_t productId, LinkSpeed link)
{
    const bool super = link == LinkSpeed::Super;
    libusb_device_descriptor descriptor{};
    descriptor.bLength = LIBUSB_DT_DEVICE_SIZE;
    descriptor.bDescriptorType = LIBUSB_DT_DEVICE;
    descriptor.bcdUSB = super ? 0x0300 : 0x0200;
    descriptor.bMaxPacketSize0 = super ? 9 : 64; // an exponent of 2 at SuperSpeed
    descriptor.idVendor = vendorId;
    descriptor.idProduct = productId;
    descriptor.bNumConfigurations = 1;
    return descriptor;
}

libusb_transfer_status TransferStatus(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Ok:
        return LIBUSB_TRANSFER_COMPLETED;
    case Outcome::Stall:
        return LIBUSB_TRANSFER_STALL;
    case Outcome::Timeout:
        return LIBUSB_TRANSFER_TIMED_OUT;
    case Outcome::Overflow:
        return LIBUSB_TRANSFER_OVERFLOW;
    case Outcome::NoDevice:
        return LIBUSB_TRANSFER_NO_DEVICE;
    case Outcome::IoError:
        break;
    }
    return LIBUSB_TRANSFER_ERROR;
}

ControlRequest RequestOf(const libusb_transfer &usb)
{
    const uint8_t *setup = usb.buffer; // little-endian, eight bytes
    const auto word = [setup](size_t at) {
        return static_cast<uint16_t>(setup[at] | setup[at + 1] << 8);
    };
    ControlRequest request{.requestType = setup[0],
                           .request = setup[1],
                           .value = word(2),
                           .index = word(4),
                           .length = word(6)};
    if (!request.In())
        request.data = {setup + LIBUSB_CONTROL_SETUP_SIZE, request.length};
    return request;
}

} // namespace

Device::Device(const ModelFacts &model, CameraOptions options)
    : m_model(&model), m_options(std::move(options)), m_vendorId(VendorId()),
      m_productId(model.productId), m_camera(std::in_place, model, m_options)
{
    m_options.link = m_camera->Options().link;
}

Device::Device(uint16_t vendorId, uint16_t productId) : m_vendorId(vendorId), m_productId(productId)
{
}

libusb_device Device::Describe() const
{
    libusb_device device{};
    device.speed = m_options.link == LinkSpeed::Super ? LIBUSB_SPEED_SUPER : LIBUSB_SPEED_HIGH;
    device.descriptor = DeviceDescriptor(m_vendorId, m_productId, m_options.link);
    device.readableDescriptor = m_options.readableDescriptor;
    return device;
}

void Device::PowerCycle(std::optional<LinkSpeed> link)
{
    if (!m_camera)
        return;
    m_camera->PowerCycle(link.value_or(m_options.link));
    m_options.link = m_camera->Options().link;
}

std::optional<Return> Device::PlugInAgain()
{
    const auto back = m_camera ? m_camera->ComesBack() : std::nullopt;
    if (back)
        m_camera->PlugInAgain();
    return back;
}

void Device::Queue(Transfer &transfer, Time now)
{
    const uint8_t address = transfer.usb->endpoint;
    Endpoint &endpoint = m_endpoints[address];
    endpoint.queue.push_back(&transfer);
    if (endpoint.queue.size() == 1)
        endpoint.readyAt = now + StartTime(address);
}

void Device::Unqueue(Transfer &transfer, Time now)
{
    const uint8_t address = transfer.usb->endpoint;
    Endpoint &endpoint = m_endpoints[address];
    const bool atHead = !endpoint.queue.empty() && endpoint.queue.front() == &transfer;
    std::erase(endpoint.queue, &transfer);
    if (!atHead)
        return;
    endpoint.readyAt = now + StartTime(address);
    if (m_camera && address != 0)
        m_camera->GiveUp(address, now);
}

Time Device::NextEvent() const
{
    Time next = kNever;
    for (const auto &[address, endpoint] : m_endpoints) {
        if (!endpoint.queue.empty())
            next = std::min(next, endpoint.readyAt);
    }
    return next;
}

void Device::Serve(Time now, std::vector<Transfer *> &done)
{
    for (auto &[address, endpoint] : m_endpoints) {
        while (!endpoint.queue.empty() && endpoint.readyAt <= now) {
            Transfer &head = *endpoint.queue.front();
            endpoint.readyAt = kNever;
            const Ending ending = address == 0 ? ServeControl(*head.usb, head, now)
                                               : ServeBulk(*head.usb, head, endpoint, now);
            if (!ending)
                continue;
            head.status = *ending;
            done.push_back(&head);
            endpoint.queue.pop_front();
            endpoint.readyAt = now + StartTime(address);
        }
    }
}

Device::Ending Device::ServeControl(const libusb_transfer &usb, Transfer &transfer, Time now)
{
    const ControlRequest request = RequestOf(usb);
    if (!m_camera)
        return LIBUSB_TRANSFER_STALL;
    traffic.push_back(LineOf(request));
    const ControlReply reply = m_camera->Control(request, now);
    LookAtBulkAgain(now);
    if (reply.outcome == Outcome::Timeout)
        return std::nullopt; // no answer: only the transfer's own time-out ends it
    if (reply.outcome == Outcome::Ok) {
        transfer.filled =
            request.In() ? std::min<size_t>(reply.data.size(), request.length) : request.length;
        if (request.In())
            std::copy_n(reply.data.begin(), transfer.filled,
                        usb.buffer + LIBUSB_CONTROL_SETUP_SIZE);
    }
    return TransferStatus(reply.outcome);
}

Device::Ending Device::ServeBulk(const libusb_transfer &usb, Transfer &transfer, Endpoint &endpoint,
                                 Time now)
{
    if (!m_camera)
        return std::nullopt;
    const std::span room(usb.buffer, static_cast<size_t>(usb.length));
    const BulkReply reply = m_camera->Bulk(usb.endpoint, room, transfer.filled, now);
    transfer.filled = reply.bytes;
    if (reply.complete)
        return TransferStatus(reply.outcome);
    endpoint.readyAt = std::max(reply.readyAt, now + 1us);
    return std::nullopt;
}

/// A request may have started or stopped the stream.
void Device::LookAtBulkAgain(Time now)
{
    for (auto &[address, endpoint] : m_endpoints) {
        if (address != 0)
            endpoint.readyAt = std::min(endpoint.readyAt, now + kBulkTime);
    }
}

void Device::ClearHalt(uint8_t endpoint, Time now)
{
    if (!m_camera)
        return;
    m_camera->ClearHalt(endpoint, now);
    LookAtBulkAgain(now);
}

AfterReset Device::Reset(Time now)
{
    if (!m_camera)
        return AfterReset::SameDevice;
    const AfterReset after = m_camera->Reset(now);
    LookAtBulkAgain(now);
    return after;
}

} // namespace vscsim
