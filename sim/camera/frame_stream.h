#pragma once

#include "camera/board.h"
#include "camera/fault_injector.h"
#include "camera/scene_source.h"

#include <optional>
#include <utility>

namespace vscsim {

/// Frames from the sensor to the bulk endpoint.
///
/// A frame is exposed for one period and read out during the next; its bytes arrive evenly while it
/// is read out. The camera holds one frame: while the host has not taken all of it, the next one
/// may still be read out, but it is lost when it ends before the host has finished. Without pacing
/// a frame is there whenever one is asked for, except that a long exposure needs its gate.
/// Without an FPGA there is no gate: a host that times a long exposure stops the sensor's clock
/// meanwhile. The times in here are the sensor's, which stand still with its clock.
class FrameStream {
  public:
    FrameStream(Board &board, SceneSource &scene, FaultInjector &faults,
                const CameraOptions &options, size_t packetSize);
    ~FrameStream() { Flush(FrameEnd::Ended); }
    FrameStream(const FrameStream &) = delete;
    FrameStream &operator=(const FrameStream &) = delete;

    /// Brings the stream up to the present, before anything that changes registers.
    void Advance(Time now);

    /// Looks at the registers again: starts, stops, and the gate of long exposures.
    void FollowBoard(Time now);

    /// Drops what is left of the frame that is being sent, if there is one.
    /// @param end  of a frame of which the host has taken a part
    void Flush(FrameEnd end = FrameEnd::Cut);
    void ClearHalt();
    void GiveUp(Time now);

    BulkReply Serve(std::span<uint8_t> room, size_t filled, Time now);

    const FrameCounts &Counts() const { return m_counts; }

    /// The exposure of a frame that the host has begun to read since the last call.
    std::optional<Exposure> TakeAccount() { return std::exchange(m_account, std::nullopt); }

  private:
    enum class Mode { Stopped, Free, Gated };
    struct Frame {
        FrameSettings settings;
        Exposure exposure;
        Time begins{}; // of the read-out
        Time ends{};
    };
    struct Sending {
        Frame frame;
        bool prepared = false;
        std::optional<Outcome> failure = {}; // instead of bytes
        uint64_t failures = 1;               // reads that end so
        Time resumes{};                      // with its bytes, after failures
        size_t length = 0;                   // in bytes, after faults
        size_t sent = 0;
        size_t bytesOf = 0;                // of m_frames, to send
        FrameEnd ending = FrameEnd::Whole; // when all of it is sent
    };
    struct Gate {
        FrameSettings settings;
        Time opened{};
    };

    bool HostPaced() const { return m_speed <= 0; }
    Mode BoardMode() const;
    Time SensorTime(Time now) const { return m_frozenAt.value_or(now) - m_frozenTime; }
    void AdvanceSensor(Time now);
    void FollowClock(Time now);
    Time Paced(Time duration) const;
    std::optional<Frame> Expose(const FrameSettings &settings, Time begins, Time exposure);
    std::optional<Frame> ExposeFree(Time starts);
    void FollowGate(Time now);

    void Prepare(Sending &sending, Time now);
    void Apply(const FaultRule &fault, Sending &sending, FrameMarks &marks);
    size_t Arrived(const Sending &sending, Time now) const;
    Time ArrivalOf(const Sending &sending, size_t bytes) const;
    bool Decide(BulkReply &reply, std::span<uint8_t> room, Time now);
    void FailRead(Sending &sending, Time now);
    bool HasFrame(Time now);
    bool StaySilent(BulkReply &reply, Time now);
    bool SendPackets(BulkReply &reply, std::span<uint8_t> room, Time now);
    size_t TakePackets(Sending &sending, std::span<uint8_t> room, Time now);
    void End(const Frame &frame, FrameEnd end);
    void GoOnUnseen();
    void EndUnseen(FrameEnd end);

    Board &m_board;
    SceneSource &m_scene;
    FaultInjector &m_faults;
    double m_speed;
    uint64_t m_limit;
    size_t m_packetSize;
    bool m_madeBeforehand;
    std::function<void(uint32_t, FrameEnd)> m_onFrameEnd;

    Mode m_mode = Mode::Stopped;
    // A frame of which nothing more comes; for the host it goes on until its transfer ends.
    std::optional<Frame> m_unseen;
    std::optional<Time> m_frozenAt;             // the clock stands still since
    Time m_frozenTime{};                        // all time that it stood still before
    Time m_frozenExposure{};                    // of that, what belongs to the next exposure
    std::optional<Gate> m_gate;                 // open
    std::optional<Frame> m_next;                // exposing, or being read out
    std::optional<Sending> m_sending;           // held for the host
    std::vector<std::vector<uint8_t>> m_frames; // in turn; one unless they are made beforehand
    std::optional<Exposure> m_account;
    Time m_exposed{}; // by all frames so far
    bool m_halted = false;
    bool m_sentInTransfer = false; // bytes of a frame, in the one that is served
    uint32_t m_number = 0;         // of the next exposure since the stream was started
    FrameCounts m_counts;
};

} // namespace vscsim
