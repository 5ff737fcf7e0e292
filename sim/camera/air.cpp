#include "camera/view.h"

#include <cmath>
#include <numbers>
#include <random>

namespace vscsim {
namespace {

constexpr double kWanderPx = 0.35; // of each wave
constexpr double kSoftening = 0.08;
constexpr double kDriftAngle = 0.4; // of the sensor's rows with the sky's
constexpr double kHertz[] = {0.047, 0.13, 0.41, 1.1, 3.7};

double Seconds(Time time)
{
    return std::chrono::duration<double>(time).count();
}

} // namespace

Air::Air(uint64_t seed, double unsteady, double driftPerS)
    : m_unsteady(unsteady), m_driftPerS(driftPerS)
{
    static_assert(std::size(kHertz) == kWaves);
    std::mt19937_64 random(seed + 1); // other draws than those of the stars
    std::uniform_real_distribution<double> phase(0, 2 * std::numbers::pi);
    for (Waves &waves : m_phases)
        for (double &start : waves)
            start = phase(random);
}

/// The longer an exposure, the less is left in it of waves that go through all phases meanwhile.
double Air::Mean(const Waves &phases, double middleS, double durationS)
{
    double sum = 0;
    for (size_t i = 0; i < kWaves; ++i) {
        const double turn = std::numbers::pi * kHertz[i];
        const double half = turn * durationS;
        sum += std::sin(2 * turn * middleS + phases[i]) * (half > 0 ? std::sin(half) / half : 1);
    }
    return sum;
}

Appearance Air::During(Time begins, Time duration) const
{
    const double lasts = Seconds(duration);
    const double middle = Seconds(begins) + lasts / 2;
    const auto moved = [&](const Waves &phases, double drift) {
        return m_driftPerS * drift * middle + m_unsteady * kWanderPx * Mean(phases, middle, lasts);
    };
    const double softer = m_unsteady * kSoftening * Mean(m_phases[2], middle, lasts);
    return {.shift = {.x = moved(m_phases[0], std::cos(kDriftAngle)),
                      .y = moved(m_phases[1], std::sin(kDriftAngle))},
            .softness = std::exp(softer)};
}

double Wrapped(double place, int sensorPixels, double margin)
{
    const double all = sensorPixels + 2 * margin;
    const double inside = std::fmod(place + margin, all);
    return (inside < 0 ? inside + all : inside) - margin;
}

} // namespace vscsim
