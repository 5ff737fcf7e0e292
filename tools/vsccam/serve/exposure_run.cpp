#include "serve/exposure_run.h"

#include "failure.h"

#include <fmt/format.h>
#include <vsccam.h>

#include <algorithm>

namespace vsctool::serve {
namespace {

ExposureTimes BeginTimes(Camera &camera)
{
    (void)camera.Listen(); // what was said before is not of this exposure
    return {};
}

} // namespace

ExposureRun::ExposureRun(Camera &camera, Microseconds asked, Microseconds patience)
    : m_camera(camera), m_asked(asked), m_patience(patience), m_times(BeginTimes(camera)),
      m_begun(Clock::now()), m_begunAt(UtcOf(m_begun))
{
    startExposure();
}

ExposureRun::~ExposureRun()
{
    if (getExpStatus() != VSC_EXP_IDLE)
        stopExposure();
}

bool ExposureRun::IsOver()
{
    m_dropped = std::max(m_dropped, getDroppedFrames());
    return getExpStatus() != VSC_EXP_WORKING || Elapsed() > m_asked + m_patience;
}

Exposure ExposureRun::Take(Frame &frame)
{
    m_times.Hear(m_camera.Listen());
    if (getExpStatus() == VSC_EXP_WORKING)
        m_camera.ThrowNoFrame(
            fmt::format("no frame within {} after the exposure", FormatTime(m_patience)));
    std::vector<uint8_t> &bytes = frame.picture.bytes;
    if (!getImageAfterExp(bytes.data(), static_cast<int>(bytes.size())))
        m_camera.ThrowNoFrame("the exposure ended without a frame");
    const auto account =
        m_times.Tell(m_camera.Entry().model, Microseconds(getValue(CONTROL_EXPOSURE, nullptr)));
    Exposure exposure;
    exposure.picture.width = frame.picture.width;
    exposure.picture.height = frame.picture.height;
    exposure.picture.format = frame.picture.format;
    exposure.start = account.start;
    exposure.asked = m_asked;
    exposure.planned = account.planned;
    exposure.measured = account.measured;
    exposure.droppedFrames = m_dropped;
    return exposure;
}

} // namespace vsctool::serve
