#include "core/automatics.h"

#include "base/debug_print.h"
#include "core/auto_exposure.h"

#include <algorithm>

namespace vsccam {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds kAutoStart = 200ms;
constexpr int kPassesPerBalance = 4;

/// The automatics reckon with the sum of the pixels that are binned after the read-out.
int BinScale(const RawFrame &frame, const Settings &now)
{
    const int bin = frame.size.width / now.width;
    return bin * bin;
}

/// Tells it by the frame itself, because what is set may have changed since it was read.
bool BinnedBySensor(const RawFrame &frame, const Settings &now)
{
    return frame.size.width < now.width * now.bin;
}

} // namespace

/// Nothing when it is no frame of the present format: hardware binning is switched while the
/// worker still reads frames of the size before.
std::optional<RawFrame> Automatics::AsRawFrame(std::span<const uint8_t> bytes,
                                               const Settings &now) const
{
    const Readout readout = ReadoutOf(m_model, now);
    const RawFrame frame{bytes, readout.size, readout.is16, m_model.highByteFirst};
    if (bytes.size() != RawFrame::Bytes(frame.size, frame.is16))
        return std::nullopt;
    return frame;
}

void Automatics::AutoExpGain(std::span<const uint8_t> bytes, const ExposureSetting &exposure)
{
    const Settings seen = m_settings.Now();
    const std::optional<RawFrame> frame = AsRawFrame(bytes, seen);
    if (!frame)
        return;
    const std::optional<int> mean = MeanBrightness(*frame, WallClockSecond());
    if (!mean)
        return;
    const bool scales = BinnedBySensor(*frame, seen) || !frame->is16;

    const Programming::Scope scope(m_programming); // the host may be switching an automatic off
    const Settings now = m_settings.Now();
    if (exposure != now.inForce)
        return; // the frame was read while the host, or the step before, changed it
    const AutoExposureState state = {
        .exposureAuto = now.exposureAuto,
        .gainAuto = now.gainAuto,
        .mean = std::min(*mean * (scales ? BinScale(*frame, seen) : 1), kBrightest),
        .target = now.autoLimits.targetBrightness,
        .gain = now.gain,
        .minGain = m_model.gain.min,
        .maxGain = m_model.gain.max,
        .gainLimit = now.autoLimits.maxGain,
        .exposureUs = now.exposureUs,
        .exposureLimitS = now.autoLimits.maxExposureS,
        .exposureLines = now.exposureLines,
    };
    StepAutoExposure(state, [this](const AutoExposureChange &change) -> uint32_t {
        if (change.setting == AutoExposureChange::Setting::kGain)
            m_set.gain(static_cast<int>(change.value));
        else
            m_set.exposure(static_cast<unsigned long long>(change.value));
        return m_settings.Now().exposureLines;
    });
    const Settings after = m_settings.Now();
    OutputDbgPrint("Dest:%d Mean:%d  gain:%d exp:%llu reg:0x%x\n", state.target, state.mean,
                   after.gain, static_cast<unsigned long long>(after.exposureUs),
                   static_cast<unsigned int>(after.exposureLines));
}

/// Red and blue are balanced after the read-out. Therefore green is compared with what the present
/// balance makes of the frame; otherwise the control would run to the end of its range.
void Automatics::AutoWhiBal(std::span<const uint8_t> bytes)
{
    const Settings seen = m_settings.Now();
    const std::optional<RawFrame> frame = AsRawFrame(bytes, seen);
    if (!frame || !m_model.colour)
        return;
    const ColourLevels levels =
        MosaicLevels(*frame, static_cast<BayerPhase>(m_model.bayer), BinScale(*frame, seen));

    const Programming::Scope scope(m_programming); // as above
    const Settings now = m_settings.Now();
    if (!now.whiteBalanceAuto)
        return;
    const WhiteBalance balance{now.red, now.blue};
    const std::optional<WhiteBalance> next =
        DecideWhiteBalance(Balanced(levels, balance), balance, now.ExposureOrGainAuto());
    if (!next)
        return;
    OutputDbgPrint(" IR:%d IB:%d\n", next->red, next->blue);
    m_set.balance(*next);
}

void Automatics::startAutoControlThr(milliseconds pass)
{
    if (!m_thread.Started())
        (void)m_thread.Start([this, pass] { SetGainExpFunc(pass); }); // without it nothing adapts
}

void Automatics::stopAutoControlThr()
{
    if (!m_thread.Started())
        return;
    OutputDbgPrint("AutoControlThr wait >>\n");
    m_thread.Join();
    OutputDbgPrint("AutoControlThr wait <<\n");
}

void Automatics::SetGainExpFunc(milliseconds pass)
{
    (void)m_capture.SleepFor(kAutoStart);
    for (int passes = 1; m_capture.GoOn(); ++passes) {
        LookAtLatest(passes % kPassesPerBalance == 0);
        (void)m_capture.SleepFor(pass);
    }
    OutputDbgPrint("Thread SetGainExpFunc Exit!\n");
}

void Automatics::LookAtLatest(bool whiteBalanceToo)
{
    // Calls that set something wait meanwhile.
    const RequestBudget budget({.work = 700ms, .countsWaits = false});
    const Settings now = m_settings.Now();
    const bool exposure = now.ExposureOrGainAuto();
    const bool balance = whiteBalanceToo && now.whiteBalanceAuto;
    if (!exposure && !balance)
        return; // takes no frame from the passes that come later
    const CirBuf::Look look =
        m_capture.Frames().TakeLatest(!balance); // nor a long one from the balance
    if (look.Frame().empty())
        return;
    if (exposure && look.Exposure().IsShort())
        AutoExpGain(look.Frame(), look.Exposure());
    if (balance)
        AutoWhiBal(look.Frame());
}

} // namespace vsccam
