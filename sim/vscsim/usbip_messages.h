#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// The messages of USB/IP, version 1.1.1. All numbers on the wire are big-endian. A client first
/// asks one thing; once that was to attach a device, commands follow until the connection ends.
namespace vscsim::usbip {

inline constexpr uint16_t kTcpPort = 3240;
inline constexpr size_t kHeaderBytes = 48;                // of a command and of its reply
inline constexpr uint32_t kMostSent = 0xFFFF;             // by a client, with a command
inline constexpr uint32_t kMostAsked = uint32_t{1} << 27; // 128 MiB, more than any frame

/// More bytes have to come before it is known what they are.
struct Incomplete {};
/// These bytes are no message, or one that no kernel sends.
struct Garbage {};

struct ListRequest {
    static constexpr size_t Size() { return 8; }
};
struct AttachRequest {
    static constexpr size_t Size() { return 40; }
    std::string_view busId; // in the parsed bytes
};
using Request = std::variant<Incomplete, Garbage, ListRequest, AttachRequest>;

struct Submit {
    uint32_t number = 0; // names it within the connection
    bool in = false;
    uint8_t endpoint = 0; // without its direction
    bool shortIsError = false;
    uint32_t length = 0; // of the transfer's buffer
    std::array<uint8_t, 8> setup = {};
    std::span<const uint8_t> data = {}; // of a transfer to the device, in the parsed bytes

    size_t Size() const { return kHeaderBytes + data.size(); }
};
struct Unlink {
    static constexpr size_t Size() { return kHeaderBytes; }
    uint32_t number = 0;
    uint32_t target = 0; // the number of the transfer that is given up
};
using Command = std::variant<Incomplete, Garbage, Submit, Unlink>;

/// What stands at the beginning of the bytes.
Request ParseRequest(std::span<const uint8_t> bytes);
Command ParseCommand(std::span<const uint8_t> bytes);

/// What clients are told of a device with one interface of a kind of its own.
struct Device {
    std::string busId;
    uint32_t bus = 1;
    uint32_t address = 0;
    uint32_t speed = 0; // as in enum usb_device_speed
    uint16_t vendorId = 0;
    uint16_t productId = 0;
    uint8_t configuration = 1;
};

enum class Refusal : uint32_t { Busy = 2, NoSuchDevice = 4 };

std::vector<uint8_t> EncodeList(std::span<const Device> devices);
std::vector<uint8_t> EncodeAttached(const Device &device);
std::vector<uint8_t> EncodeRefused(Refusal reason);

/// A transfer has ended. What the device sent follows.
/// @param status  0 or a negative error number of Linux
std::vector<uint8_t> EncodeSubmitted(uint32_t number, int status, uint32_t length);
/// The answer to Unlink. The transfer that was given up gets none, unless it had one already.
std::vector<uint8_t> EncodeUnlinked(uint32_t number, int status);

} // namespace vscsim::usbip
