#include "serve/camera_works.h"

#include "video/video_options.h"

#include <vsccam.h>

namespace vsctool::serve {
namespace {

using namespace std::chrono_literals;

constexpr auto kTelemetryInterval = 1s;
constexpr auto kIdleTurn = 100ms;

} // namespace

CameraWorks::CameraWorks(Context &context)
    : m_context(context), m_log(context.console), m_camera(context.camera)
{
    m_camera.SetFraming(m_framing);
    m_camera.SetExposure(UsualVideoExposure(), context.console);
    Publish();
}

std::shared_ptr<const Snapshot> CameraWorks::Now() const
{
    const std::lock_guard lock(m_mutex);
    return m_now;
}

void CameraWorks::SetVideo(bool on)
{
    m_wantsVideo = on;
    if (!on)
        m_feed.Stop();
}

void CameraWorks::StartVideo()
{
    m_camera.SetFraming(m_framing);
    m_feed.Start();
}

std::chrono::milliseconds CameraWorks::Turn()
{
    if (Clock::now() >= m_nextTelemetry)
        Telemetry();
    if (m_wantsVideo && !m_feed.IsRunning())
        StartVideo();
    if (!m_feed.IsRunning())
        return kIdleTurn;
    m_news = m_feed.Read(m_camera) != nullptr;
    return 0ms;
}

void CameraWorks::Telemetry()
{
    m_nextTelemetry = Clock::now() + kTelemetryInterval;
    Publish();
}

void CameraWorks::Publish()
{
    auto now = std::make_shared<Snapshot>();
    now->model = m_camera.Entry().model;
    now->simulated = m_context.simulated;
    now->video = m_feed.IsRunning();
    now->feed = m_feed.Figures();
    m_news = true;
    const std::lock_guard lock(m_mutex);
    m_now = std::move(now);
}

void CameraWorks::End()
{
    m_feed.Stop();
}

} // namespace vsctool::serve
