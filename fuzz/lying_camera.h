#pragma once

#include "fuzz.h"
#include "standin/bus.h"
#include "support/virtual_time.h"

#include <vsccam.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <span>

/// Decides by the bytes of an input what a camera answers and sends. For as long as these last,
/// each byte says what becomes of the next answer; then the camera tells the truth.
class Liar : public vscsim::Forger {
  public:
    explicit Liar(std::span<const uint8_t> input) : m_decisions(input, Decisions::From::End) {}

    void TellTheTruth() { m_honest = true; }

    void Answer(const vscsim::ControlRequest &request, vscsim::ControlReply &reply) override
    {
        if (Truth())
            return;
        switch (m_trick % 4) {
        case 0:
            reply.data.resize(request.length);
            std::ranges::generate(reply.data, [this] { return m_decisions.Byte(); });
            break;
        case 1:
            reply.data.resize(m_decisions.Below(reply.data.size() + 1));
            break;
        case 2:
            reply.outcome = AnyFailure();
            break;
        default:
            Alter(reply.data);
        }
    }

    void Send(std::span<uint8_t> room, vscsim::BulkReply &reply) override
    {
        if (!reply.complete || Truth())
            return;
        switch (m_trick % 5) {
        case 0:
            reply.bytes = m_decisions.Below(room.size() + 1);
            break;
        case 1:
            reply.outcome = AnyFailure();
            break;
        case 2: // nothing until the host gives up
            reply = {.complete = false};
            break;
        case 3:
            std::ranges::generate(room, [this] { return m_decisions.Byte(); });
            break;
        default:
            Alter(room.first(reply.bytes));
        }
    }

  private:
    /// Whether the next answer is the camera's own.
    bool Truth()
    {
        if (m_honest || m_decisions.UsedUp())
            return true;
        if (m_true > 0) {
            --m_true;
            return true;
        }
        m_trick = m_decisions.Byte();
        if (m_trick >= 0x80)
            m_true = m_trick - 0x80;
        return m_trick >= 0x80;
    }

    vscsim::Outcome AnyFailure()
    {
        using enum vscsim::Outcome;
        constexpr vscsim::Outcome kFailures[] = {Stall, Timeout, IoError, Overflow, NoDevice};
        return kFailures[m_decisions.Below(std::size(kFailures))];
    }

    /// A byte near the front, or near the end, where the marks of a frame are.
    void Alter(std::span<uint8_t> bytes)
    {
        const auto place = static_cast<int8_t>(m_decisions.Byte());
        const size_t at =
            place >= 0 ? static_cast<size_t>(place) : bytes.size() - static_cast<size_t>(-place);
        if (at < bytes.size())
            bytes[at] = m_decisions.Byte();
    }

    Decisions m_decisions;
    std::atomic<bool> m_honest{false};
    uint8_t m_trick = 0;
    int m_true = 0; // answers that are still left alone
};

/// A bus in virtual time with one camera that lies. At the end nothing may be left of the program.
class LyingCamera {
  public:
    /// @param pictures  that it made beforehand and sends in turn; 0: each frame has its own
    LyingCamera(const char *model, std::shared_ptr<Liar> liar, size_t pictures = 0)
        : m_liar(std::move(liar))
    {
        Bus().Reset();
        m_contexts = Bus().LiveObjects().contextReferences;
        m_device = Bus().Plug(model, {.framesMadeBeforehand = pictures, .forger = m_liar});
    }
    LyingCamera(const LyingCamera &) = delete;
    LyingCamera &operator=(const LyingCamera &) = delete;
    ~LyingCamera()
    {
        closeCamera();
        const vscsim::Bus::Objects left = Bus().LiveObjects();
        Must(left.contextReferences == m_contexts && left.deviceLists == 0 && left.handles == 0);
        Must(left.deviceReferences == 0 && left.transfers == 0 && Bus().TakeMisuse().empty());
        Bus().Reset();
    }

    /// The camera is all right from now on, and plugged in anew.
    void Mend()
    {
        m_liar->TellTheTruth();
        Bus().Replug(m_device);
    }

    vscsim::Time Now() { return m_time.Clock().Now(); }

    static vscsim::Bus &Bus() { return vscsim::Bus::Instance(); }

  private:
    vsccam::VirtualTime m_time; // outlives everything on the bus
    std::shared_ptr<Liar> m_liar;
    int m_contexts = 0;
    int m_device = 0;
};
