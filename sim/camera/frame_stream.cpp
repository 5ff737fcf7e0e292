#include "camera/frame_stream.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace vscsim {
namespace {

using namespace std::chrono_literals;

// An empty frame that nobody gives up ends by itself.
constexpr Time kLongestSilence = 5s;

// The transfers of one read are given up together; this is the same read.
constexpr Time kSameRead = 1ms;

constexpr uint64_t kDefaultSpoiltBytes = 512;

bool Complete(BulkReply &reply, Outcome outcome)
{
    reply.complete = true;
    reply.outcome = outcome;
    return true;
}

} // namespace

FrameStream::FrameStream(Board &board, SceneSource &scene, FaultInjector &faults,
                         const CameraOptions &options, size_t packetSize)
    : m_board(board), m_scene(scene), m_faults(faults), m_speed(options.speed),
      m_limit(options.frameLimit.value_or(std::numeric_limits<uint64_t>::max())),
      m_packetSize(packetSize), m_madeBeforehand(options.framesMadeBeforehand != 0),
      m_onFrameEnd(options.onFrameEnd), m_frames(std::max<size_t>(options.framesMadeBeforehand, 1))
{
}

Time FrameStream::Paced(Time duration) const
{
    if (HostPaced())
        return Time::zero();
    return std::chrono::duration_cast<Time>(
        std::chrono::duration<double, std::nano>(static_cast<double>(duration.count()) / m_speed));
}

std::optional<FrameStream::Frame> FrameStream::Expose(const FrameSettings &settings, Time begins,
                                                      Time exposure)
{
    if (!settings.Possible() || m_counts.produced >= m_limit)
        return std::nullopt;
    return Frame{.settings = settings,
                 .exposure = {.frame = m_number++, .duration = exposure},
                 .begins = begins,
                 .ends = begins + Paced(settings.readout)};
}

std::optional<FrameStream::Frame> FrameStream::ExposeFree(Time starts)
{
    const FrameSettings settings = m_board.Settings();
    // However fast the time goes, each frame of the past is gone through.
    const Time period =
        HostPaced() ? Time::zero() : std::max(Paced(settings.period), kShortestPeriod);
    return Expose(settings, starts + period,
                  settings.exposure + std::exchange(m_frozenExposure, Time::zero()));
}

void FrameStream::Advance(Time now)
{
    AdvanceSensor(SensorTime(now));
}

void FrameStream::AdvanceSensor(Time now)
{
    while (m_next) {
        const Time begins = m_next->begins;
        if (m_sending ? m_next->ends > now : begins > now)
            return;
        ++m_counts.produced;
        Exposure &exposure = m_next->exposure;
        exposure.begins = m_exposed;
        m_exposed += std::max(exposure.duration, m_next->settings.period);
        if (!m_sending) {
            m_sending = Sending{.frame = *m_next};
        } else {
            ++m_counts.lost;
            End(*m_next, FrameEnd::Unread);
        }
        m_next = m_mode == Mode::Free && !HostPaced() ? ExposeFree(begins) : std::nullopt;
    }
}

FrameStream::Mode FrameStream::BoardMode() const
{
    if (!m_board.Streaming())
        return Mode::Stopped;
    return m_board.FramesWaitForGate() ? Mode::Gated : Mode::Free;
}

/// A sensor whose clock stands still goes on exposing, but it counts no lines and sends none.
void FrameStream::FollowClock(Time now)
{
    const bool frozen = m_board.Frozen();
    if (frozen && !m_frozenAt) {
        m_frozenAt = now;
    } else if (!frozen && m_frozenAt) {
        const Time span = now - *m_frozenAt;
        const bool exposing = m_next && m_next->begins > SensorTime(now);
        (exposing ? m_next->exposure.duration : m_frozenExposure) += span;
        m_frozenTime += span;
        m_frozenAt.reset();
    }
}

void FrameStream::FollowBoard(Time realNow)
{
    FollowClock(realNow);
    const Time now = SensorTime(realNow);
    const Mode mode = BoardMode();
    if (mode != m_mode) {
        // The picture begins anew: what was exposing, read out or held is gone.
        const bool stops = m_mode == Mode::Stopped || mode == Mode::Stopped;
        if (m_mode == Mode::Stopped)
            m_number = 0;
        m_mode = mode;
        m_frozenExposure = Time::zero();
        m_gate.reset();
        m_next.reset();
        if (!stops && m_sending && m_sending->sent > 0)
            GoOnUnseen();
        else
            Flush(FrameEnd::Ended);
    }
    if (m_mode == Mode::Free && !m_next && !HostPaced())
        m_next = ExposeFree(now);
    if (m_mode == Mode::Gated)
        FollowGate(now);
}

void FrameStream::FollowGate(Time now)
{
    const bool open = m_board.fpga.GateOpen();
    if (open && !m_gate) {
        m_gate = Gate{.settings = m_board.Settings(), .opened = now};
    } else if (!open && m_gate) {
        if (!m_board.sensor->Readout().keepsExposing)
            m_next = Expose(m_gate->settings, now, now - m_gate->opened);
        m_gate.reset();
    }
}

void FrameStream::End(const Frame &frame, FrameEnd end)
{
    if (m_onFrameEnd)
        m_onFrameEnd(frame.exposure.frame, end);
}

void FrameStream::GoOnUnseen()
{
    if (m_sending->ending == FrameEnd::Joined)
        End(m_sending->frame, FrameEnd::Joined);
    else
        m_unseen = m_sending->frame;
    m_sending.reset();
}

void FrameStream::EndUnseen(FrameEnd end)
{
    if (m_unseen)
        End(*std::exchange(m_unseen, std::nullopt), end);
}

void FrameStream::Flush(FrameEnd end)
{
    EndUnseen(end == FrameEnd::Ended ? FrameEnd::Ended : FrameEnd::Spoiled);
    if (!m_sending)
        return;
    const size_t picture = m_sending->frame.settings.Bytes(); // a fault may add something
    const bool all = m_sending->sent >= std::min(m_sending->length, picture);
    if (m_sending->sent == 0)
        end = FrameEnd::Unread;
    else if (all || m_sending->ending == FrameEnd::Joined)
        end = m_sending->ending;
    if (end == FrameEnd::Ended)
        m_sentInTransfer = false; // the next one takes its place
    End(m_sending->frame, end);
    m_sending.reset();
}

void FrameStream::ClearHalt()
{
    m_halted = false;
    Flush();
}

void FrameStream::GiveUp(Time realNow)
{
    const Time now = SensorTime(realNow);
    if (m_sending && m_sending->sent > 0 && m_sending->ending == FrameEnd::Whole)
        m_sending->ending = FrameEnd::Spoiled;
    const bool silent = m_sending && m_sending->prepared && m_sending->length == 0;
    if (silent && now >= m_sending->frame.ends + kSameRead)
        Flush();
}

void FrameStream::Apply(const FaultRule &fault, Sending &sending, FrameMarks &marks)
{
    switch (fault.fault) {
    case Fault::ShortFrame:
        sending.length -= static_cast<size_t>(std::min<uint64_t>(
            sending.length, fault.amount != 0 ? fault.amount : kDefaultSpoiltBytes));
        break;
    case Fault::LongFrame:
        sending.length +=
            static_cast<size_t>(fault.amount != 0 ? fault.amount : kDefaultSpoiltBytes);
        break;
    case Fault::EmptyFrame:
        sending.length = 0;
        break;
    case Fault::BadHead:
        marks.badHead = true;
        break;
    case Fault::BadTail:
        marks.badTail = true;
        break;
    case Fault::UnequalCounters:
        marks.unequalCounters = true;
        break;
    case Fault::IoErrorFrame:
        sending.failure = Outcome::IoError;
        sending.failures = std::max<uint64_t>(fault.amount, 1);
        break;
    case Fault::StallFrame:
        sending.failure = Outcome::Stall;
        break;
    case Fault::Mute:
    case Fault::Unplug:
    case Fault::Replug:
    case Fault::Move:
        m_board.Strike(fault);
        break;
    case Fault::RefuseRequest:
    case Fault::TimeOutRequest:
    case Fault::ShortAnswer:
    case Fault::CorruptAnswer:
    case Fault::LostAtReset:
        break; // hit no frames
    }
}

/// Makes the bytes of a frame, when the host first asks for them.
void FrameStream::Prepare(Sending &sending, Time now)
{
    const Frame &frame = sending.frame;
    const auto counter = static_cast<uint16_t>(frame.exposure.frame & 0xFFFFU);
    FrameMarks marks{.style = frame.settings.marks, .counter = counter};
    sending.prepared = true;
    m_account = frame.exposure;
    m_account->since = frame.begins + m_frozenTime - frame.exposure.duration;
    sending.length = frame.settings.Bytes();
    for (const FaultRule &fault : m_faults.ForFrame())
        Apply(fault, sending, marks);
    const bool tail =
        marks.style == MarkStyle::BothEnds && (marks.badTail || marks.unequalCounters);
    if (marks.badHead || tail || sending.length != frame.settings.Bytes())
        sending.ending = FrameEnd::Spoiled;
    const bool silent = sending.length == 0 || sending.failure == Outcome::Stall;
    if (silent || m_board.condition != Board::Condition::Working) {
        sending.frame.ends = now; // the silence begins here
        return;
    }
    Exposure exposure = frame.exposure;
    exposure.celsius = m_board.climate.Celsius(now + m_frozenTime);
    exposure.shift = m_board.guide.ShiftAt(now + m_frozenTime);
    sending.bytesOf = exposure.frame % m_frames.size();
    std::vector<uint8_t> &bytes = m_frames[sending.bytesOf];
    const size_t all = std::max(sending.length, frame.settings.Bytes());
    if (!m_madeBeforehand || bytes.size() != all) {
        bytes.resize(all);
        RenderFrame(m_scene, frame.settings, exposure, bytes);
    }
    WriteMarks(marks, bytes);
}

/// Bytes that have come from the sensor: whole packets, and the rest when the frame is complete.
size_t FrameStream::Arrived(const Sending &sending, Time now) const
{
    const Frame &frame = sending.frame;
    if (now >= frame.ends)
        return sending.length;
    const double part = static_cast<double>((now - frame.begins).count()) /
                        static_cast<double>((frame.ends - frame.begins).count());
    const auto bytes =
        static_cast<size_t>(part * static_cast<double>(frame.settings.Bytes())); // cut on purpose
    return std::min(bytes - bytes % m_packetSize, sending.length - sending.length % m_packetSize);
}

Time FrameStream::ArrivalOf(const Sending &sending, size_t bytes) const
{
    const Frame &frame = sending.frame;
    const double part = static_cast<double>(bytes) / static_cast<double>(frame.settings.Bytes());
    const double span = static_cast<double>((frame.ends - frame.begins).count());
    const Time arrival = frame.begins + Time(std::llround(std::ceil(part * span))) + 1us;
    return bytes >= sending.length ? frame.ends : std::min(arrival, frame.ends);
}

/// Moves what has arrived and fits, in whole packets as the wire has them.
size_t FrameStream::TakePackets(Sending &sending, std::span<uint8_t> room, Time now)
{
    size_t bytes = Arrived(sending, now) - sending.sent;
    if (bytes > room.size())
        bytes = room.size() - room.size() % m_packetSize;
    const auto from = m_frames[sending.bytesOf].begin() + static_cast<std::ptrdiff_t>(sending.sent);
    std::copy_n(from, bytes, room.begin());
    sending.sent += bytes;
    return bytes;
}

BulkReply FrameStream::Serve(std::span<uint8_t> room, size_t filled, Time now)
{
    BulkReply reply{.bytes = filled};
    if (filled == 0)
        m_sentInTransfer = false;
    while (!Decide(reply, room, SensorTime(now))) {
    }
    if (reply.complete)
        EndUnseen(FrameEnd::Spoiled);
    if (m_frozenAt)
        reply.readyAt = kNever; // a request of the host sets the clock going
    else if (reply.readyAt != kNever)
        reply.readyAt += m_frozenTime;
    return reply;
}

/// One step for the transfer: whether the reply is what the host gets.
bool FrameStream::Decide(BulkReply &reply, std::span<uint8_t> room, Time now)
{
    if (m_halted)
        return Complete(reply, Outcome::Stall);
    if (reply.bytes == room.size())
        return Complete(reply, Outcome::Ok);
    if (!HasFrame(now)) {
        reply.readyAt = m_next ? m_next->begins : kNever;
        return true;
    }
    if (m_board.condition != Board::Condition::Working)
        return true; // the camera answers for it
    if (m_sending->failure) {
        const Outcome outcome = *m_sending->failure;
        FailRead(*m_sending, now);
        return Complete(reply, outcome);
    }
    if (now < m_sending->resumes) {
        reply.readyAt = m_sending->resumes;
        return true;
    }
    return m_sending->length == 0 ? StaySilent(reply, now) : SendPackets(reply, room, now);
}

/// A stall ends the frame. After an I/O error it comes again, for the next read.
void FrameStream::FailRead(Sending &sending, Time now)
{
    m_halted = sending.failure == Outcome::Stall;
    if (m_halted) {
        Flush();
        return;
    }
    sending.resumes = now + kSameRead;
    if (--sending.failures == 0)
        sending.failure.reset();
}

bool FrameStream::HasFrame(Time now)
{
    if (HostPaced() && m_mode == Mode::Free && !m_sending && !m_frozenAt)
        m_next = ExposeFree(now);
    AdvanceSensor(now);
    if (m_sending && !m_sending->prepared)
        Prepare(*m_sending, now);
    return m_sending.has_value();
}

bool FrameStream::StaySilent(BulkReply &reply, Time now)
{
    const Time until = m_sending->frame.ends + kLongestSilence;
    if (now < until) {
        reply.readyAt = until;
        return true;
    }
    Flush();
    return false;
}

bool FrameStream::SendPackets(BulkReply &reply, std::span<uint8_t> room, Time now)
{
    Sending &sending = *m_sending;
    const bool begins = sending.sent == 0;
    const size_t taken = TakePackets(sending, room.subspan(reply.bytes), now);
    reply.bytes += taken;
    const bool seen = sending.frame.settings.marks == MarkStyle::Head; // by the mark within
    if (begins && taken != 0 && m_sentInTransfer && !seen)
        sending.ending = FrameEnd::Joined;
    m_sentInTransfer = m_sentInTransfer || taken != 0;
    if (sending.sent == sending.length) {
        const bool endsTransfer = sending.length % m_packetSize != 0;
        ++m_counts.sent;
        if (!endsTransfer && sending.length < sending.frame.settings.Bytes()) {
            GoOnUnseen();
            return false;
        }
        Flush();
        return endsTransfer && Complete(reply, Outcome::Ok);
    }
    const size_t left = room.size() - reply.bytes;
    if (left == 0)
        return false;
    if (sending.sent < Arrived(sending, now)) {
        // The next packet is longer than what is left of the buffer: it is lost.
        sending.sent = std::min(sending.sent + m_packetSize, sending.length);
        if (sending.ending == FrameEnd::Whole)
            sending.ending = FrameEnd::Spoiled;
        if (sending.sent == sending.length)
            Flush();
        return Complete(reply, Outcome::Overflow);
    }
    reply.readyAt = ArrivalOf(sending, std::min(sending.length, sending.sent + left));
    return true;
}

} // namespace vscsim
