#include "base/debug_print.h"
#include "core/auto_exposure.h"
#include "core/auto_white_balance.h"
#include "core/camera_base.h"

#include <algorithm>
#include <mutex>

// Automatic exposure, gain and white balance: what the decisions are made on, and what becomes of
// them.
namespace vsccam {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {
constexpr milliseconds kAutoStart = 200ms;
constexpr int kPassesPerBalance = 4;
} // namespace

/// Nothing when it is no frame of the present format: hardware binning is switched while the
/// worker still reads frames of the size before.
std::optional<RawFrame> CCameraBase::AsRawFrame(std::span<const uint8_t> bytes)
{
    const RawFrame frame{bytes, ReadoutSize(), m_output16Bits, m_model.highByteFirst};
    if (bytes.size() != RawFrame::Bytes(frame.size, frame.is16))
        return std::nullopt;
    return frame;
}

/// The automatics reckon with the sum of the pixels that are binned after the read-out.
int CCameraBase::BinScale(const RawFrame &frame) const
{
    const int bin = frame.size.width / m_width;
    return bin * bin;
}

/// By the frame itself: what is set may have changed since it was read.
bool CCameraBase::BinnedBySensor(const RawFrame &frame) const
{
    return frame.size.width < m_width * m_bin;
}

void CCameraBase::AutoExpGain(std::span<const uint8_t> bytes, const ExposureSetting &exposure)
{
    const std::optional<RawFrame> frame = AsRawFrame(bytes);
    if (!frame)
        return;
    const std::optional<int> mean = MeanBrightness(*frame, WallClockSecond());
    if (!mean)
        return;
    const bool scales = BinnedBySensor(*frame) || !frame->is16;

    const std::lock_guard lock(m_settingsSection); // the host may be switching an automatic off
    if (exposure != Exposure())
        return; // the frame was read while the host, or the step before, changed it
    const AutoExposureState state = {
        .exposureAuto = m_exposureAuto,
        .gainAuto = m_gainAuto,
        .mean = std::min(*mean * (scales ? BinScale(*frame) : 1), kBrightest),
        .target = m_autoTarget,
        .gain = m_gain,
        .minGain = m_model.gain.min,
        .maxGain = m_model.gain.max,
        .gainLimit = m_autoMaxGain,
        .exposureUs = m_exposureUs,
        .exposureLimitS = m_autoMaxExpS,
        .exposureLines = m_exposureLines,
    };
    StepAutoExposure(state, [this](const AutoExposureChange &change) -> uint32_t {
        const auto [setting, value] = change;
        if (setting == AutoExposureChange::Setting::kGain)
            (void)SetGain(static_cast<int>(value), m_gainAuto); // the next frame shows what it did
        else
            (void)SetExp(static_cast<unsigned long long>(value), true);
        return m_exposureLines;
    });
    OutputDbgPrint("Dest:%d Mean:%d  gain:%d exp:%llu reg:0x%x\n", state.target, state.mean,
                   static_cast<int>(m_gain), static_cast<unsigned long long>(m_exposureUs),
                   static_cast<unsigned int>(m_exposureLines));
}

/// Red and blue are balanced after the read-out. What is compared with green is therefore what the
/// present balance makes of the frame, else the control would run to the end of its range.
void CCameraBase::AutoWhiBal(std::span<const uint8_t> bytes)
{
    const std::optional<RawFrame> frame = AsRawFrame(bytes);
    if (!frame || !m_model.colour)
        return;
    const ColourLevels levels =
        MosaicLevels(*frame, static_cast<BayerPhase>(m_model.bayer), BinScale(*frame));

    const std::lock_guard lock(m_settingsSection); // as above
    if (!m_whiteBalanceAuto)
        return;
    const WhiteBalance now{m_red, m_blue};
    const std::optional<WhiteBalance> next =
        DecideWhiteBalance(Balanced(levels, now), now, ExposureOrGainAuto());
    if (!next)
        return;
    OutputDbgPrint(" IR:%d IB:%d\n", next->red, next->blue);
    (void)SetRGBBalance(next->red, next->blue, true);
}

void CCameraBase::startAutoControlThr(milliseconds pass)
{
    if (m_autoRunning)
        return;
    m_autoRunning.Set();
    if (!m_autoThread.Start([this, pass] { SetGainExpFunc(pass); }))
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

void CCameraBase::SetGainExpFunc(milliseconds pass)
{
    // Ends with the capture: the worker, which joins it, may still be busy with the camera.
    (void)capture.SleepFor(kAutoStart);
    for (int passes = 1; m_autoRunning && capture.GoOn(); ++passes) {
        RunAutomatics(passes % kPassesPerBalance == 0);
        (void)capture.SleepFor(pass);
    }
    OutputDbgPrint("Thread SetGainExpFunc Exit!\n");
}

void CCameraBase::RunAutomatics(bool whiteBalanceToo)
{
    // Calls that set something wait meanwhile.
    const RequestBudget budget({.work = 700ms, .countsWaits = false});
    const bool exposure = ExposureOrGainAuto();
    const bool balance = whiteBalanceToo && m_whiteBalanceAuto;
    if (!exposure && !balance)
        return; // takes no frame from the passes that come later
    const RawFrames::Look look =
        capture.Raw().TakeLatest(!balance); // nor a long one from the balance
    if (look.Frame().empty())
        return;
    if (exposure && look.Exposure().IsShort())
        AutoExpGain(look.Frame(), look.Exposure());
    if (balance)
        AutoWhiBal(look.Frame());
}

} // namespace vsccam
