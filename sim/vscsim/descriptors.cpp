#include "vscsim/descriptors.h"

#include <linux/usb/ch9.h>

#include <bit>
#include <cstring>
#include <string_view>

namespace vscsim {
namespace {

using Bytes = std::vector<uint8_t>;

static_assert(std::endian::native == std::endian::little, "descriptors are taken as they stand");

enum StringIndex : uint8_t { kLanguages, kManufacturerString, kProductString };
constexpr int kUsEnglish = 0x0409;

/// Descriptors one behind the other, each as long as it says.
template <class... Parts> Bytes Joined(const Parts &...parts)
{
    Bytes bytes((parts.bLength + ...));
    uint8_t *next = bytes.data();
    ((std::memcpy(next, &parts, parts.bLength), next += parts.bLength), ...);
    return bytes;
}

Bytes DeviceDescriptor(const ModelFacts &model, bool super)
{
    const bool knowsSuper = model.controller == ControllerKind::Fx3;
    return Joined(usb_device_descriptor{
        .bLength = USB_DT_DEVICE_SIZE,
        .bDescriptorType = USB_DT_DEVICE,
        .bcdUSB = static_cast<uint16_t>(super        ? 0x0300
                                        : knowsSuper ? 0x0210
                                                     : 0x0200),
        .bDeviceClass = USB_CLASS_PER_INTERFACE,
        .bDeviceSubClass = 0,
        .bDeviceProtocol = 0,
        .bMaxPacketSize0 = static_cast<uint8_t>(super ? 9 : 64), // at SuperSpeed 2 to the 9th
        .idVendor = VendorId(),
        .idProduct = model.productId,
        .bcdDevice = 0,
        .iManufacturer = kManufacturerString,
        .iProduct = kProductString,
        .iSerialNumber = 0, // the cameras have none
        .bNumConfigurations = 1,
    });
}

Bytes ConfigurationDescriptor(uint8_t imageEndpoint, bool super)
{
    constexpr usb_interface_descriptor kImageInterface = {
        .bLength = USB_DT_INTERFACE_SIZE,
        .bDescriptorType = USB_DT_INTERFACE,
        .bInterfaceNumber = Descriptors::kInterface,
        .bAlternateSetting = 0,
        .bNumEndpoints = 1,
        .bInterfaceClass = USB_CLASS_VENDOR_SPEC,
        .bInterfaceSubClass = 0,
        .bInterfaceProtocol = 0,
        .iInterface = 0,
    };
    const usb_endpoint_descriptor endpoint = {
        .bLength = USB_DT_ENDPOINT_SIZE,
        .bDescriptorType = USB_DT_ENDPOINT,
        .bEndpointAddress = imageEndpoint,
        .bmAttributes = USB_ENDPOINT_XFER_BULK,
        .wMaxPacketSize = static_cast<uint16_t>(super ? 1024 : 512),
        .bInterval = 0,
        .bRefresh = 0,
        .bSynchAddress = 0,
    };
    constexpr usb_ss_ep_comp_descriptor kCompanion = {
        .bLength = USB_DT_SS_EP_COMP_SIZE,
        .bDescriptorType = USB_DT_SS_ENDPOINT_COMP,
        .bMaxBurst = 15, // 16 packets in a row
        .bmAttributes = 0,
        .wBytesPerInterval = 0,
    };
    usb_config_descriptor head = {
        .bLength = USB_DT_CONFIG_SIZE,
        .bDescriptorType = USB_DT_CONFIG,
        .wTotalLength = 0,
        .bNumInterfaces = 1,
        .bConfigurationValue = Descriptors::kConfiguration,
        .iConfiguration = 0,
        .bmAttributes = USB_CONFIG_ATT_ONE,
        .bMaxPower = static_cast<uint8_t>(super ? 112 : 250), // 896 or 500 mA in 8 or 2 mA
    };
    head.wTotalLength = static_cast<uint16_t>(head.bLength + kImageInterface.bLength +
                                              endpoint.bLength + (super ? kCompanion.bLength : 0));
    return super ? Joined(head, kImageInterface, endpoint, kCompanion)
                 : Joined(head, kImageInterface, endpoint);
}

/// What the camera says of its abilities at the other speeds.
Bytes ObjectStore()
{
    constexpr usb_ext_cap_descriptor kUsb2 = {
        .bLength = USB_DT_USB_EXT_CAP_SIZE,
        .bDescriptorType = USB_DT_DEVICE_CAPABILITY,
        .bDevCapabilityType = USB_CAP_TYPE_EXT,
        .bmAttributes = 0,
    };
    constexpr usb_ss_cap_descriptor kSuper = {
        .bLength = USB_DT_USB_SS_CAP_SIZE,
        .bDescriptorType = USB_DT_DEVICE_CAPABILITY,
        .bDevCapabilityType = USB_SS_CAP_TYPE,
        .bmAttributes = 0,
        .wSpeedSupported = USB_HIGH_SPEED_OPERATION | USB_5GBPS_OPERATION,
        .bFunctionalitySupport = 2, // from high speed on
        .bU1devExitLat = 0,
        .bU2DevExitLat = 0,
    };
    constexpr usb_bos_descriptor kHead = {
        .bLength = USB_DT_BOS_SIZE,
        .bDescriptorType = USB_DT_BOS,
        .wTotalLength = USB_DT_BOS_SIZE + kUsb2.bLength + kSuper.bLength,
        .bNumDeviceCaps = 2,
    };
    return Joined(kHead, kUsb2, kSuper);
}

/// In UTF-16; the texts are ASCII.
Bytes StringDescriptor(std::string_view text)
{
    Bytes bytes(2 + 2 * text.size());
    bytes[0] = static_cast<uint8_t>(bytes.size());
    bytes[1] = USB_DT_STRING;
    for (size_t i = 0; i < text.size(); ++i)
        bytes[2 + 2 * i] = static_cast<uint8_t>(text[i]);
    return bytes;
}

} // namespace

Descriptors::Descriptors(const ModelFacts &model, LinkSpeed link)
    : m_manufacturer(model.maker), m_product(model.name),
      m_device(DeviceDescriptor(model, link == LinkSpeed::Super)),
      m_configuration(ConfigurationDescriptor(model.ImageEndpoint(), link == LinkSpeed::Super)),
      m_objectStore(model.controller == ControllerKind::Fx3 ? ObjectStore() : Bytes())
{
}

Bytes Descriptors::Sysfs() const
{
    Bytes bytes = m_device;
    bytes.insert(bytes.end(), m_configuration.begin(), m_configuration.end());
    return bytes;
}

Bytes Descriptors::String(int index) const
{
    switch (index) {
    case kLanguages:
        return Bytes{4, USB_DT_STRING, kUsEnglish & 0xFF, kUsEnglish >> 8};
    case kManufacturerString:
        return StringDescriptor(m_manufacturer);
    case kProductString:
        return StringDescriptor(m_product);
    default:
        return {};
    }
}

Bytes Descriptors::OfType(int type, int index) const
{
    switch (type) {
    case USB_DT_DEVICE:
        return m_device;
    case USB_DT_CONFIG:
        return m_configuration;
    case USB_DT_BOS:
        return m_objectStore;
    case USB_DT_STRING:
        return String(index);
    default:
        return {};
    }
}

ControlReply Descriptors::Answer(const ControlRequest &request) const
{
    ControlReply reply;
    if (request.request == USB_REQ_GET_STATUS)
        reply.data = Bytes(2); // neither self-powered nor halted
    if (request.request == USB_REQ_GET_CONFIGURATION)
        reply.data = Bytes(1, kConfiguration);
    if (request.request == USB_REQ_GET_DESCRIPTOR)
        reply.data = OfType(request.value >> 8, request.value & 0xFF);
    if (reply.data.empty() || !request.In())
        return {.outcome = Outcome::Stall};
    if (reply.data.size() > request.length)
        reply.data.resize(request.length);
    return reply;
}

} // namespace vscsim
