#include "vscsim/usbfs_device.h"

#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <memory>
#include <utility>

namespace vscsim {
namespace {

// The abilities of an xHCI controller. With scatter-gather libusb sends each transfer in one piece,
// so that continued transfers are not needed and not offered.
constexpr uint32_t kCapabilities = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                                   USBDEVFS_CAP_BULK_SCATTER_GATHER |
                                   USBDEVFS_CAP_REAP_AFTER_DISCONNECT;

template <class T> bool ReadAt(ClientMemory &memory, uintptr_t address, T &value)
{
    return memory.Read(address, {reinterpret_cast<uint8_t *>(&value), sizeof value});
}

template <class T> bool WriteAt(ClientMemory &memory, uintptr_t address, const T &value)
{
    return memory.Write(address, {reinterpret_cast<const uint8_t *>(&value), sizeof value});
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
    : m_device(model, options, memoryLimit)
{
}

int UsbfsDevice::Ioctl(File file, unsigned long request, uintptr_t argument, ClientMemory &memory,
                       Time now)
{
    const auto *const answer = std::ranges::find(kAnswers, request, &Answer::request);
    if (answer == std::end(kAnswers))
        return -ENOTTY;
    (void)Advance(now); // the camera's past comes before the request
    if (GoneFor(file) && !answer->whenGone)
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
    return Link() == LinkSpeed::Super ? USB_SPEED_SUPER : USB_SPEED_HIGH;
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
    m_device.CancelBulk(call.now);
    m_claimedBy = nullptr;
    return 0;
}

int UsbfsDevice::ClearHalt(const Call &call)
{
    unsigned endpoint = 0;
    if (!ReadAt(call.memory, call.argument, endpoint))
        return -EFAULT;
    if (endpoint != m_device.ImageEndpoint())
        return -ENOENT;
    m_device.ClearHalt(call.now);
    return 0;
}

int UsbfsDevice::Reset(const Call &call)
{
    const AfterReset after = m_device.Reset(call.now);
    if (after == AfterReset::NewDevice)
        m_device.PowerCycle(); // programs that run would not see a new one: it keeps its address
    return after == AfterReset::Gone ? -ENODEV : 0;
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
    const bool control = record.type == USBDEVFS_URB_TYPE_CONTROL;
    if (!control && (record.type != USBDEVFS_URB_TYPE_BULK || record.endpoint == 0))
        return -EINVAL;
    const auto length = static_cast<size_t>(record.buffer_length);
    if (!m_device.HasRoomFor(length))
        return -ENOMEM;
    Urb urb = {.owner = call.file,
               .name = call.argument,
               .endpoint = control ? uint8_t{0} : record.endpoint,
               .length = length,
               .data = std::make_unique_for_overwrite<uint8_t[]>(length)};
    if (control && !call.memory.Read(reinterpret_cast<uintptr_t>(record.buffer), urb.Buffer()))
        return -EFAULT;
    return m_device.Submit(std::move(urb), call.now);
}

int UsbfsDevice::Discard(const Call &call)
{
    return m_device.Cancel(call.file, call.argument, call.now) ? 0 : -EINVAL;
}

int UsbfsDevice::Reap(const Call &call)
{
    const auto urb = m_device.TakeFinished(call.file);
    if (!urb)
        return GoneFor(call.file) ? -ENODEV : -EAGAIN;
    const auto address = static_cast<uintptr_t>(urb->name);
    return Deliver(*urb, call.memory) && WriteAt(call.memory, call.argument, address) ? 0 : -EFAULT;
}

bool UsbfsDevice::Deliver(const Urb &urb, ClientMemory &memory)
{
    const auto address = static_cast<uintptr_t>(urb.name);
    usbdevfs_urb record = {}; // the program's own, of which only the result is ours
    if (!ReadAt(memory, address, record))
        return false;
    const std::span received = urb.Received();
    const auto buffer = reinterpret_cast<uintptr_t>(record.buffer);
    const size_t start = urb.IsControl() ? Urb::kSetupBytes : 0;
    if (!received.empty() && !memory.Write(buffer + start, received))
        return false;
    record.status = urb.status;
    record.actual_length = static_cast<int>(urb.filled);
    return WriteAt(memory, address, record);
}

void UsbfsDevice::Close(File file, Time now)
{
    if (m_claimedBy == file) {
        m_device.CancelBulk(now);
        m_claimedBy = nullptr;
    }
    m_device.Forget(file);
    m_files.erase(file);
    m_stale.erase(file);
}

void UsbfsDevice::PlugInAgain()
{
    m_device.PowerCycle();
    m_claimedBy = nullptr;
    m_stale = m_files;
}

} // namespace vscsim
