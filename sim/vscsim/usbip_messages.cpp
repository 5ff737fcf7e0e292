#include "vscsim/usbip_messages.h"

#include <algorithm>
#include <optional>

namespace vscsim::usbip {
namespace {

constexpr uint16_t kVersion = 0x0111;

enum Code : uint16_t {
    kAskList = 0x8005,
    kTellList = 0x0005,
    kAskAttach = 0x8003,
    kTellAttach = 0x0003,
};

enum CommandCode : uint32_t { kSubmit = 1, kUnlink = 2, kSubmitted = 3, kUnlinked = 4 };

constexpr size_t kPathBytes = 256;
constexpr size_t kBusIdBytes = 32;
constexpr uint32_t kShortNotOk = 1; // of the transfer's flags
constexpr uint32_t kNoPackets = 0xFFFFFFFF;
constexpr uint32_t kEndpoints = 16;

/// Reads fields one after the other. There must be enough bytes.
class Reader {
  public:
    explicit Reader(std::span<const uint8_t> bytes) : m_rest(bytes) {}

    std::span<const uint8_t> Bytes(size_t count)
    {
        const std::span taken = m_rest.first(count);
        m_rest = m_rest.subspan(count);
        return taken;
    }
    uint32_t Word32() { return Number(4); }
    uint16_t Word16() { return static_cast<uint16_t>(Number(2)); }

  private:
    uint32_t Number(size_t bytes)
    {
        uint32_t number = 0;
        for (const uint8_t byte : Bytes(bytes))
            number = number << 8 | byte;
        return number;
    }

    std::span<const uint8_t> m_rest;
};

class Writer {
  public:
    Writer &Word32(uint32_t number) { return Number(number, 4); }
    Writer &Word16(uint16_t number) { return Number(number, 2); }
    Writer &Word8(uint8_t number) { return Number(number, 1); }
    Writer &Zeros(size_t count)
    {
        m_bytes.resize(m_bytes.size() + count);
        return *this;
    }
    /// In a field of so many bytes, of which the last one stays 0.
    Writer &Text(std::string_view text, size_t bytes)
    {
        text = text.substr(0, bytes - 1);
        m_bytes.insert(m_bytes.end(), text.begin(), text.end());
        return Zeros(bytes - text.size());
    }
    std::vector<uint8_t> Take() { return std::move(m_bytes); }

  private:
    Writer &Number(uint32_t number, int bytes)
    {
        for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
            m_bytes.push_back(static_cast<uint8_t>(number >> shift & 0xFF));
        return *this;
    }

    std::vector<uint8_t> m_bytes;
};

Writer Answer(Code code, uint32_t status)
{
    Writer writer;
    writer.Word16(kVersion).Word16(code).Word32(status);
    return writer;
}

void Append(Writer &writer, const Device &device)
{
    writer.Text("/sys/devices/vscsim/" + device.busId, kPathBytes)
        .Text(device.busId, kBusIdBytes)
        .Word32(device.bus)
        .Word32(device.address)
        .Word32(device.speed)
        .Word16(device.vendorId)
        .Word16(device.productId)
        .Word16(0) // release
        .Zeros(3)  // class, subclass and protocol, which the interface tells
        .Word8(device.configuration)
        .Word8(1)  // of so many configurations
        .Word8(1); // interfaces
}

std::vector<uint8_t> Reply(CommandCode code, uint32_t number, int status, uint32_t length)
{
    constexpr size_t kOfSubmit = 12; // device, direction and endpoint, which count in commands only
    constexpr size_t kRest = 20;
    return Writer()
        .Word32(code)
        .Word32(number)
        .Zeros(kOfSubmit)
        .Word32(static_cast<uint32_t>(status))
        .Word32(length)
        .Zeros(kRest)
        .Take();
}

bool AgreesWithSetup(const Submit &control)
{
    const bool setupIn = (control.setup[0] & 0x80) != 0;
    const uint32_t setupLength = control.setup[6] | uint32_t{control.setup[7]} << 8; // as on USB
    return control.length == setupLength && (control.length == 0 || control.in == setupIn);
}

Command ParseSubmit(Reader fields, uint32_t number, bool in, uint32_t endpoint,
                    std::span<const uint8_t> rest)
{
    const uint32_t flags = fields.Word32();
    const uint32_t length = fields.Word32();
    (void)fields.Word32(); // the first frame; like the packets, it is for isochronous transfers
    const uint32_t packets = fields.Word32();
    (void)fields.Word32(); // interval
    if ((packets != 0 && packets != kNoPackets) || length > (in ? kMostAsked : kMostSent))
        return Garbage{};
    if (!in && rest.size() < length)
        return Incomplete{};
    Submit submit = {.number = number,
                     .in = in,
                     .endpoint = static_cast<uint8_t>(endpoint),
                     .shortIsError = (flags & kShortNotOk) != 0,
                     .length = length,
                     .data = rest.first(in ? 0 : length)};
    std::ranges::copy(fields.Bytes(submit.setup.size()), submit.setup.begin());
    if (endpoint == 0 && !AgreesWithSetup(submit))
        return Garbage{};
    return submit;
}

} // namespace

Request ParseRequest(std::span<const uint8_t> bytes)
{
    if (bytes.size() < ListRequest::Size())
        return Incomplete{};
    Reader fields(bytes);
    const bool known = fields.Word16() == kVersion;
    const uint16_t code = fields.Word16();
    (void)fields.Word32(); // status, of answers only
    if (known && code == kAskList)
        return ListRequest{};
    if (!known || code != kAskAttach)
        return Garbage{};
    if (bytes.size() < AttachRequest::Size())
        return Incomplete{};
    const std::span field = fields.Bytes(kBusIdBytes);
    const auto end = std::ranges::find(field, 0);
    if (end == field.end())
        return Garbage{};
    return AttachRequest{.busId = {reinterpret_cast<const char *>(field.data()),
                                   static_cast<size_t>(end - field.begin())}};
}

Command ParseCommand(std::span<const uint8_t> bytes)
{
    if (bytes.size() < kHeaderBytes)
        return Incomplete{};
    Reader fields(bytes);
    const uint32_t code = fields.Word32();
    const uint32_t number = fields.Word32();
    (void)fields.Word32(); // the device, of which a connection has one
    const uint32_t direction = fields.Word32();
    const uint32_t endpoint = fields.Word32();
    if (direction > 1 || endpoint >= kEndpoints)
        return Garbage{};
    if (code == kUnlink)
        return Unlink{.number = number, .target = fields.Word32()};
    if (code != kSubmit)
        return Garbage{};
    return ParseSubmit(fields, number, direction != 0, endpoint, bytes.subspan(kHeaderBytes));
}

std::vector<uint8_t> EncodeList(std::span<const Device> devices)
{
    constexpr uint8_t kVendorSpecific = 0xFF;
    Writer writer = Answer(kTellList, 0);
    writer.Word32(static_cast<uint32_t>(devices.size()));
    for (const Device &device : devices) {
        Append(writer, device);
        writer.Word8(kVendorSpecific).Zeros(3);
    }
    return writer.Take();
}

std::vector<uint8_t> EncodeAttached(const Device &device)
{
    Writer writer = Answer(kTellAttach, 0);
    Append(writer, device);
    return writer.Take();
}

std::vector<uint8_t> EncodeRefused(Refusal reason)
{
    return Answer(kTellAttach, static_cast<uint32_t>(reason)).Take();
}

std::vector<uint8_t> EncodeSubmitted(uint32_t number, int status, uint32_t length)
{
    return Reply(kSubmitted, number, status, length);
}

std::vector<uint8_t> EncodeUnlinked(uint32_t number, int status)
{
    return Reply(kUnlinked, number, status, 0);
}

} // namespace vscsim::usbip
