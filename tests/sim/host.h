#pragma once

#include "camera/camera.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace vscsim {

using namespace std::chrono_literals;

/// A host program reduced to its traffic, with a clock of its own.
class Host {
  public:
    static constexpr size_t kTransferBytes = 1 << 20;

    struct Format {
        int width = 640;
        int height = 480;
        bool sixteenBit = false;

        size_t Bytes() const
        {
            return static_cast<size_t>(width) * static_cast<size_t>(height) * (sixteenBit ? 2 : 1);
        }
    };

    explicit Host(CameraOptions options = {.speed = 0}, const char *model = "VSC470MM")
        : camera(*FindModel(model), std::move(options))
    {
    }

    uint8_t Endpoint() const { return camera.Model().ImageEndpoint(); }

    Outcome Out(uint8_t request, int value = 0, int index = 0, std::vector<uint8_t> data = {})
    {
        return camera
            .Control({.requestType = 0x40,
                      .request = request,
                      .value = static_cast<uint16_t>(value),
                      .index = static_cast<uint16_t>(index),
                      .length = static_cast<uint16_t>(data.size()),
                      .data = data},
                     now)
            .outcome;
    }
    ControlReply In(uint8_t request, int value, int index, int length)
    {
        return camera.Control({.requestType = 0xC0,
                               .request = request,
                               .value = static_cast<uint16_t>(value),
                               .index = static_cast<uint16_t>(index),
                               .length = static_cast<uint16_t>(length)},
                              now);
    }
    void Word(int address, int value) { (void)Out(0xA6, address, value); }
    void Sony(int address, int value) { (void)Out(0xB6, address, value); }
    void Fpga(int number, int value) { (void)Out(0xBD, number, value); }
    void Sony(int address, int value, int bytes)
    {
        for (int i = 0; i < bytes; ++i)
            Sony(address + i, value >> 8 * i & 0xFF);
    }
    void Fpga(int number, int value, int bytes)
    {
        for (int i = 0; i < bytes; ++i)
            Fpga(number + i, value >> 8 * i & 0xFF);
    }

    /// Window, depth, 18.5625 MHz, lines of 203 clocks, the shortest frame, exposed throughout.
    void Program(const Format &format)
    {
        Fpga(1, 1);
        Sony(0x3007, 0x40);
        Sony(0x3042, format.width, 2);
        Sony(0x303E, format.height, 2);
        Sony(0x3040, 0, 2);
        Sony(0x303C, 0, 2);
        Sony(0x3046, 0xF1);
        Sony(0x3009, 0x01);
        Sony(0x300A, 1, 2);
        Fpga(8, format.height, 2);
        Fpga(4, format.width, 2);
        Fpga(10, format.sixteenBit ? 0x11 : 0x01);
        Fpga(19, 203, 2);
        Fpga(16, format.height + 18, 3);
        Sony(0x3020, 1, 3);
        Fpga(1, 0);
    }
    /// Exposure in lines of the format above, 10.94 us each.
    void ExposeLines(int lines, int height)
    {
        Fpga(16, std::max(lines + 2, height + 18), 3);
        Sony(0x3020, std::max(height + 16 - lines, 1), 3);
    }
    void Start()
    {
        (void)Out(0xA9);
        Sony(0x3000, 0);
        Fpga(0, 0x21);
        camera.ClearHalt(Endpoint(), now);
    }

    /// One transfer; gives up at the time-out with what has come.
    BulkReply Transfer(std::span<uint8_t> room, Time timeout)
    {
        const Time deadline = now + timeout;
        BulkReply reply = camera.Bulk(Endpoint(), room, 0, now);
        while (!reply.complete && reply.readyAt <= deadline) {
            EXPECT_GT(reply.readyAt, now) << "would ask for ever";
            now = reply.readyAt;
            reply = camera.Bulk(Endpoint(), room, reply.bytes, now);
        }
        if (!reply.complete) {
            now = deadline;
            reply = camera.Bulk(Endpoint(), room, reply.bytes, now);
            reply.outcome = Outcome::Timeout;
            camera.GiveUp(Endpoint(), now);
        }
        return reply;
    }
    /// One read as a driver does it: transfers of 1 MiB until one fails or all are done.
    std::vector<uint8_t> Read(size_t bytes, Time timeout = 1s)
    {
        std::vector<uint8_t> frame(bytes);
        size_t received = 0;
        for (size_t start = 0; start < bytes; start += kTransferBytes) {
            const BulkReply reply = Transfer(
                std::span(frame).subspan(start, std::min(kTransferBytes, bytes - start)), timeout);
            received += reply.bytes;
            last = reply.outcome;
            if (last != Outcome::Ok)
                break;
        }
        frame.resize(received);
        return frame;
    }

    Camera camera;
    Time now = 1h;
    Outcome last = Outcome::Ok;
};

inline int Word(std::span<const uint8_t> frame, size_t at)
{
    return frame[at] | frame[at + 1] << 8;
}

} // namespace vscsim
