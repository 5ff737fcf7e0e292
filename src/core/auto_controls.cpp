#include "base/debug_print.h"
#include "core/camera_base.h"

// Automatic exposure, gain and white balance: the thread for short exposures. The decisions
// themselves are not built yet; until then frames are looked at and nothing is changed.
namespace vsccam {

using namespace std::chrono_literals;

namespace {
constexpr auto kAutoStart = 200ms;
constexpr auto kAutoPass = 100ms;
} // namespace

void CCameraBase::AutoExpGain(const uint8_t *) {}

void CCameraBase::AutoWhiBal(const uint8_t *) {}

void CCameraBase::startAutoControlThr()
{
    if (m_autoRunning)
        return;
    m_autoRunning.Set();
    if (!m_autoThread.Start([this] { SetGainExpFunc(); }))
        m_autoRunning.Clear();
}

void CCameraBase::stopAutoControlThr()
{
    if (!m_autoRunning)
        return;
    m_autoRunning.Clear();
    OutputDbgPrint("AutoControlThr wait >>\n");
    m_autoThread.Join();
    OutputDbgPrint("AutoControlThr wait <<\n");
}

void CCameraBase::SetGainExpFunc()
{
    (void)m_autoRunning.SleepFor(kAutoStart);
    while (m_autoRunning)
        (void)m_autoRunning.SleepFor(kAutoPass);
    OutputDbgPrint("Thread SetGainExpFunc Exit!\n");
}

} // namespace vsccam
