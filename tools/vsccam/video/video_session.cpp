#include "video/video_session.h"

#include "failure.h"
#include "stop_signals.h"

#include <fmt/format.h>

#include <algorithm>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

constexpr auto kTurn = 100ms;
constexpr auto kIdle = 250ms;
constexpr auto kLookInterval = 1s;
constexpr auto kNormalSilence = 1500ms; // beside the exposure
constexpr double kMiB = 1 << 20;

size_t FrameBytes()
{
    const auto format = static_cast<PixelFormat>(getImgType());
    return static_cast<size_t>(getWidth()) * static_cast<size_t>(getHeight()) *
           static_cast<size_t>(BytesPerPixel(format));
}

size_t FramesOf(int64_t mib)
{
    return std::max(static_cast<size_t>(mib << 20) / FrameBytes(), FrameRing::kFewestFrames);
}

} // namespace

double VideoState::FramesPerSecond() const
{
    const int64_t intervals = std::max<int64_t>(frames - 1, 0);
    return elapsed > 0us ? static_cast<double>(intervals) / Seconds(elapsed) : 0;
}

double VideoState::MiBPerSecond() const
{
    return FramesPerSecond() * static_cast<double>(frameBytes) / kMiB;
}

VideoSession::VideoSession(Camera &camera, const Context &context, const VideoPlan &plan,
                           FrameSink &sink)
    : m_camera(camera), m_console(context.console), m_line(context.console.ShowsProgress()),
      m_patience(context.timeout), m_plan(plan), m_sink(sink),
      m_ring(FrameBytes(), FramesOf(plan.bufferMiB))
{
    m_state.frameBytes = FrameBytes();
    m_state.ringFrames = m_ring.Frames();
}

VideoSession::~VideoSession()
{
    if (!m_emptying.joinable())
        return;
    m_ring.Discard(); // something was thrown
    m_sink.Abandon();
    EndVideo();
    m_emptying.join();
}

VideoResult VideoSession::Run(Microseconds exposure, const Report &report)
{
    VideoResult result;
    (void)m_camera.Listen();
    m_lastFrame = m_nextLook = SteadyClock::now();
    m_reader.emplace(m_ring, m_plan.limits);
    m_emptying = std::thread([this] { Empty(); });
    try {
        Supervise(exposure, report);
    } catch (const Failure &failure) {
        result.end = std::current_exception();
        if (failure.Code() >= static_cast<int>(Exit::kSignal) && !m_plan.finishes) {
            m_ring.Discard();
            m_sink.Abandon();
        }
    }
    EndVideo();
    try {
        AwaitSink(report);
        CheckDrops(); // of the last moment
    } catch (const Failure &) {
        result.end = result.end ? result.end : std::current_exception();
    }
    if (m_sinkFailure && !result.end)
        result.end = m_sinkFailure;
    result.state = m_state;
    result.dropped = m_dropped;
    return result;
}

void VideoSession::Supervise(Microseconds exposure, const Report &report)
{
    while (!m_readerIsDone && !m_sinkIsDone) {
        StopSignals::SleepFor(kTurn);
        Update();
        Watch(exposure);
        Tell(report);
        CheckDrops();
    }
}

/// Each gap is told once.
void VideoSession::Tell(const Report &report)
{
    m_line.Show(report(m_state));
    m_state.gaps.clear();
}

void VideoSession::Note(const std::string &line)
{
    m_line.Show(""); // which stands where the note goes
    m_console.Note(line);
}

void VideoSession::Update()
{
    VideoReader::Progress progress = m_reader->Ask();
    m_readerIsDone = progress.done;
    m_refused = progress.refused;
    m_state.frames = progress.frames;
    m_state.dropped = m_refused + std::max(getDroppedFrames(), 0);
    m_state.waiting = m_ring.Waiting();
    m_state.mostWaiting = std::max(m_state.mostWaiting, m_state.waiting);
    if (progress.last) {
        m_state.elapsed =
            std::chrono::duration_cast<Microseconds>(*progress.last - *progress.first);
        m_lastFrame = *progress.last;
    }
    m_state.gaps = std::move(progress.gaps);
    for (const Microseconds gap : m_state.gaps)
        m_state.worstGap = std::max(m_state.worstGap, gap);
}

void VideoSession::Watch(Microseconds exposure)
{
    (void)m_camera.Listen(); // or too many lines wait, and the account of the end finds no place
    const auto now = SteadyClock::now();
    const auto silence = now - m_lastFrame;
    if (silence > exposure + m_patience)
        m_camera.ThrowNoFrame(fmt::format(
            "no frame for {}", FormatTime(std::chrono::floor<std::chrono::seconds>(silence))));
    if (silence <= exposure + kNormalSilence) {
        if (std::exchange(m_silenceIsTold, false))
            Note("frames come again");
    } else if (now >= m_nextLook) {
        LookForCamera(silence);
        m_nextLook = now + kLookInterval;
    }
}

/// The library looks for a lost camera, and programs it as it was; here the user is told.
void VideoSession::LookForCamera(SteadyClock::duration silence)
{
    if (m_silenceIsTold)
        return;
    m_silenceIsTold = true;
    Note(fmt::format("{} {} for {:.1f} s; waiting up to {} for it", m_camera.Entry().model,
                     m_camera.IsPresent() ? "has sent nothing" : "is gone, no frame",
                     std::chrono::duration<double>(silence).count(), FormatTime(m_patience)));
}

void VideoSession::CheckDrops() const
{
    if (m_plan.mostDropped && m_state.dropped > *m_plan.mostDropped)
        throw Failure(Exit::kTooManyDrops,
                      fmt::format("{} frames were dropped, more than the {} of --max-drops",
                                  m_state.dropped, *m_plan.mostDropped));
}

/// Gives the frames to the sink, one after the other.
void VideoSession::Empty()
{
    try {
        while (!m_ring.AtEnd()) {
            if (const auto frame = m_ring.Next(kIdle))
                m_sink.Put(*frame);
            else
                m_sink.Idle();
        }
        m_sink.End();
    } catch (const std::exception &) {
        m_sinkFailure = std::current_exception();
    }
    m_sinkIsDone = true;
}

void VideoSession::EndVideo()
{
    const int dropped = std::max(getDroppedFrames(), 0);
    stopCapture(); // which ends the reader's wait
    m_reader->Stop();
    Update(); // of the frames that came meanwhile
    m_dropped = DropAccountIn(m_camera.Listen());
    if (m_dropped.empty() && dropped > 0) // the library's messages go elsewhere
        m_dropped.emplace_back("camera or link", dropped);
    m_dropped.emplace_back("buffer full", m_refused);
    m_state.dropped = SumOf(m_dropped);
}

/// Until all that waits is written. A signal ends that, too: who writes may be slow, or never take
/// anything again.
void VideoSession::AwaitSink(const Report &report)
{
    std::exception_ptr signal;
    Tell(report);
    while (!m_sinkIsDone) {
        try {
            m_state.waiting = m_ring.Waiting();
            Tell(report);
            StopSignals::SleepFor(kTurn);
        } catch (const Failure &) {
            signal = std::current_exception();
            const size_t lost = m_ring.Discard();
            m_sink.Abandon();
            Note(fmt::format("{} frames that waited are not written", lost));
        }
    }
    m_emptying.join();
    m_line.Show("");
    if (signal)
        std::rethrow_exception(signal);
}

} // namespace vsctool
