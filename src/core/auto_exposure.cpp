#include "core/auto_exposure.h"

#include <algorithm>
#include <cstdlib>

namespace vsccam {

namespace {

// The grid that is laid over the whole frame; its points outside the middle are not used.
constexpr int kColumns = 64;
constexpr int kRows = 48;

// All in per cent of the target.
constexpr int kDeadBand = 15;
constexpr int kCoarseBand = 30;     // smaller errors wait while a line is half of the exposure,
constexpr int kVeryCoarseBand = 45; // or all of it
constexpr uint32_t kCoarseLines = 2;
constexpr uint32_t kVeryCoarseLines = 1;

constexpr uint64_t kExposureFirstUpToUs = 100'000; // from there on, gain is raised first
constexpr int64_t kLowestAutoGain = 1;

/// The sequence that rand() gives, without touching the host program's own.
class Dither {
  public:
    explicit Dither(uint32_t seed) { initstate_r(seed, m_table, sizeof m_table, &m_state); }
    Dither(const Dither &) = delete;
    Dither &operator=(const Dither &) = delete;

    /// 0 or 1.
    int Next()
    {
        int32_t number = 0;
        random_r(&m_state, &number);
        return number % 2;
    }

  private:
    char m_table[128] = {}; // the size that rand() uses
    random_data m_state{};
};

constexpr bool InMiddle(int place, int extent)
{
    return extent / 5 <= place && place <= int64_t{4} * extent / 5 && place < extent;
}

/// A step in the making: every change of gain starts from what the one before it set.
class Step {
  public:
    Step(const AutoExposureState &state, const ApplyChange &apply)
        : m_state(state), m_apply(apply), m_gain(state.gain),
          m_range(int64_t{state.maxGain} - state.minGain),
          m_gainLimit(std::min(state.gainLimit, state.maxGain)),
          m_exposureLines(state.exposureLines)
    {
    }

    void Make()
    {
        if (!m_state.exposureAuto && !m_state.gainAuto)
            return;
        if (m_state.mean < Band(-kDeadBand))
            Brighten();
        else if (m_state.mean > Band(kDeadBand))
            Darken();
    }

  private:
    int64_t Band(int percent) const
    {
        const int64_t target = m_state.target;
        return percent < 0 ? target - -percent * target / 100 : target + percent * target / 100;
    }
    int64_t FineGain() const { return m_range / 100; }
    int64_t CoarseGain() const { return m_range / 50; }

    /// The exposure changes by whole lines, so that a short one would jump over the target.
    bool TooCoarse(int side) const
    {
        const auto within = [this, side](int percent) {
            return side < 0 ? m_state.mean > Band(-percent) : m_state.mean < Band(percent);
        };
        return (m_exposureLines <= kCoarseLines && within(kCoarseBand)) ||
               (m_exposureLines <= kVeryCoarseLines && within(kVeryCoarseBand));
    }

    void Brighten()
    {
        if (!m_state.exposureAuto) {
            SetGain(std::min(m_gainLimit, m_gain + CoarseGain()));
            return;
        }
        if (m_state.gainAuto)
            RaiseGain(FineGain());
        if (!m_state.gainAuto || m_state.exposureUs <= kExposureFirstUpToUs) {
            if (!TooCoarse(-1))
                RaiseExposure();
            if (m_state.gainAuto)
                RaiseGain(FineGain());
        } else if (m_gain < m_gainLimit) {
            RaiseGain(CoarseGain());
        } else {
            RaiseExposure();
        }
    }

    void Darken()
    {
        if (!m_state.exposureAuto) {
            SetGain(m_gain - FineGain()); // the model knows its lowest gain
            return;
        }
        if (m_state.exposureUs > kExposureFirstUpToUs) {
            LowerExposure();
            return;
        }
        if (!TooCoarse(1))
            LowerExposure();
        if (!m_state.gainAuto)
            return;
        LowerGain();
        if (m_exposureLines <= kCoarseLines)
            LowerGain();
    }

    void RaiseGain(int64_t step) { SetGain(std::min(m_gainLimit, m_gain + step)); }
    void LowerGain() { SetGain(std::max(kLowestAutoGain, m_gain - FineGain())); }
    void SetGain(int64_t gain)
    {
        m_exposureLines = m_apply({AutoExposureChange::Setting::kGain, gain});
        m_gain = std::clamp<int64_t>(gain, m_state.minGain, m_state.maxGain);
    }

    // For the same error it falls half as fast as it rises.
    void RaiseExposure()
    {
        const auto limit = static_cast<uint64_t>(std::max(m_state.exposureLimitS, 0)) * 1'000'000;
        SetExposure(std::min(limit, m_state.exposureUs +
                                        Share(int64_t{m_state.target} - m_state.mean, 200)));
    }
    void LowerExposure()
    {
        const uint64_t less = Share(int64_t{m_state.mean} - m_state.target, 400);
        SetExposure(m_state.exposureUs - std::min(less, m_state.exposureUs));
    }
    uint64_t Share(int64_t error, uint64_t divisor) const
    {
        return static_cast<uint64_t>(error) * m_state.exposureUs / divisor;
    }
    void SetExposure(uint64_t us)
    {
        m_exposureLines =
            m_apply({AutoExposureChange::Setting::kExposure, static_cast<int64_t>(us)});
    }

    const AutoExposureState &m_state;
    const ApplyChange &m_apply;
    int64_t m_gain;
    int64_t m_range;
    int64_t m_gainLimit;
    uint32_t m_exposureLines;
};

} // namespace

std::optional<int> MeanBrightness(const RawFrame &frame, uint32_t seed)
{
    Dither dither(seed);
    const auto [width, height] = frame.size;
    int sum = 0;
    int count = 0;
    for (int i = 0; i < kColumns; ++i) {
        const int x = static_cast<int>(i * (width / double{kColumns})) + dither.Next();
        if (!InMiddle(x, width))
            continue;
        for (int j = 0; j < kRows; ++j) {
            const int y = static_cast<int>(j * (height / double{kRows})) + dither.Next();
            if (!InMiddle(y, height))
                continue;
            sum += frame.Brightness(x, y);
            ++count;
        }
    }
    if (count == 0)
        return std::nullopt;
    return sum / count + 1; // never 0
}

void StepAutoExposure(const AutoExposureState &state, const ApplyChange &apply)
{
    Step(state, apply).Make();
}

} // namespace vsccam
