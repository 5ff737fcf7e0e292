#include "camera/models.h"
#include "camera/scene_source.h"
#include "camera/view.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

namespace vscsim {
namespace {

constexpr int kHotPixels = 250;
constexpr double kReferenceC = 20.0;
constexpr size_t kNoiseValues = size_t{1} << 16;
constexpr int kConverterBits = 12;
constexpr float kLargestStep = (1 << kConverterBits) - 1;
constexpr Colour kSkyPerSecond = {280, 360, 250}; // at dusk, in electrons

struct HotPixel {
    int x = 0;
    int y = 0;
    float perSecond = 0; // at the reference temperature
};

/// A sensor under the sky. The noise comes from the seed, and its draws go on from frame to frame.
/// Hot pixels are those of the sensor, whatever it looks at.
class SkySource final : public SceneSource {
  public:
    SkySource(const ModelFacts &model, const CameraOptions &options)
        : m_model(model), m_flawless(options.flawless), m_pixel(PixelFactsOf(model)),
          m_sites(model), m_air(options.seed, options.seeing, options.driftPerS),
          m_random(options.seed), m_noise(kNoiseValues)
    {
        if (!options.capped) {
            for (size_t i = 0; i < m_glow.size(); ++i)
                m_glow[i] = kSkyPerSecond[i] * options.glow[i];
            m_view =
                options.scene == Scene::Moon ? MakeMoon(model) : MakeStars(model, options.seed);
        }
        ScatterHotPixels();
        std::normal_distribution<float> normal;
        if (!m_flawless)
            std::ranges::generate(m_noise, [&] { return normal(m_random); });
        if (options.capped) // else a dark frame would have the noise of the picture it is meant for
            m_random.seed(~options.seed);
    }

    void Begin(const SensorReadout &sensor, const Exposure &exposure) override;
    void Row(int row, std::span<uint16_t> samples) override;

  private:
    void ScatterHotPixels();
    void CollectLight(int y);
    void ExposeRow(int y, std::span<float> steps);
    int PlaceOf(int binnedPlace, int part) const;

    ModelFacts m_model;
    bool m_flawless;
    PixelFacts m_pixel;
    Sites m_sites;
    Air m_air;
    Colour m_glow{};
    std::unique_ptr<View> m_view; // none behind the cap
    std::mt19937_64 m_random;
    std::vector<float> m_noise;        // normal deviates
    std::vector<HotPixel> m_hotPixels; // from the top

    SensorReadout m_sensor;
    float m_seconds = 0;
    float m_darkPerSecond = 0;
    float m_darkFactor = 1; // against the reference temperature
    float m_stepsPerElectron = 1;
    std::vector<float> m_light; // on a row of pixels, in electrons per second
    std::vector<float> m_steps; // of it
    std::vector<float> m_sum;   // of those that are binned
};

void SkySource::ScatterHotPixels()
{
    std::mt19937_64 sensor(m_model.productId);
    const auto below = [&sensor](double end) {
        return std::uniform_real_distribution<double>(0, end)(sensor);
    };
    for (int i = 0; i < kHotPixels; ++i)
        m_hotPixels.push_back({.x = static_cast<int>(below(m_model.sensorWidth)),
                               .y = static_cast<int>(below(m_model.sensorHeight)),
                               .perSecond = static_cast<float>(20.0 * std::exp(below(5)))});
    std::ranges::sort(m_hotPixels, {}, &HotPixel::y);
}

void SkySource::Begin(const SensorReadout &sensor, const Exposure &exposure)
{
    m_sensor = sensor;
    m_seconds = std::chrono::duration<float>(exposure.duration).count();
    const double doublings = (exposure.celsius - kReferenceC) / m_pixel.darkDoublesEveryC;
    m_darkFactor = m_flawless ? 0.0F : static_cast<float>(std::exp2(doublings));
    m_darkPerSecond = static_cast<float>(m_pixel.darkElectronsPerSecond) * m_darkFactor;
    m_stepsPerElectron = static_cast<float>(sensor.gain / m_pixel.electronsPerStep);
    if (m_view) {
        Appearance appearance = m_air.During(exposure.begins, exposure.duration);
        appearance.shift.x += exposure.shift.x;
        appearance.shift.y += exposure.shift.y;
        m_view->Begin(appearance, sensor.window, m_seconds);
    }
}

void SkySource::CollectLight(int y)
{
    const int left = m_sensor.window.x;
    const std::array<float, 2> glow = m_sites.OfRow(y, m_glow);
    m_light.resize(static_cast<size_t>(m_sensor.window.width));
    for (size_t x = 0; x < m_light.size(); ++x)
        m_light[x] = glow[(static_cast<size_t>(left) + x) & 1];
    if (m_view)
        m_view->AddTo(m_light, left, y);
}

/// Steps of the converter, not yet rounded, for the window's part of one row of pixels.
void SkySource::ExposeRow(int y, std::span<float> steps)
{
    const auto left = static_cast<size_t>(m_sensor.window.x);
    CollectLight(y);
    const auto readVariance =
        static_cast<float>(m_pixel.readNoiseElectrons * m_pixel.readNoiseElectrons);
    for (size_t x = 0; x < steps.size(); ++x)
        steps[x] = (m_light[x] + m_darkPerSecond) * m_seconds;
    for (auto hot = std::ranges::lower_bound(m_hotPixels, y, {}, &HotPixel::y);
         hot != m_hotPixels.end() && hot->y == y; ++hot) {
        const auto x = static_cast<size_t>(hot->x);
        if (x >= left && x - left < steps.size())
            steps[x - left] += hot->perSecond * m_darkFactor * m_seconds;
    }
    const float black = static_cast<float>(m_sensor.blackLevel) + 0.5F; // rounds
    const float *const noise = m_noise.data() + m_random() % (kNoiseValues - steps.size());
    for (size_t x = 0; x < steps.size(); ++x)
        steps[x] =
            (steps[x] + std::sqrt(steps[x] + readVariance) * noise[x]) * m_stepsPerElectron + black;
}

/// Place of one of the pixels that the sensor bins into one: it takes sites of one colour.
int SkySource::PlaceOf(int binnedPlace, int part) const
{
    const int period = m_model.Colour() ? 2 : 1;
    return binnedPlace / period * period * m_sensor.bin + binnedPlace % period + part * period;
}

void SkySource::Row(int row, std::span<uint16_t> samples)
{
    const int bin = m_sensor.bin;
    m_steps.resize(static_cast<size_t>(m_sensor.window.width));
    m_sum.assign(samples.size(), 0.0F);
    for (int i = 0; i < bin; ++i) {
        ExposeRow(std::min(m_sensor.window.y + PlaceOf(row, i), m_model.sensorHeight - 1), m_steps);
        for (int j = 0; j < bin; ++j)
            for (size_t x = 0; x < samples.size(); ++x)
                m_sum[x] += m_steps[std::min(static_cast<size_t>(PlaceOf(static_cast<int>(x), j)),
                                             m_steps.size() - 1)];
    }
    const float mean = 1.0F / static_cast<float>(bin * bin);
    const int dropped = kConverterBits - m_sensor.bits;
    for (size_t x = 0; x < samples.size(); ++x) {
        const int code = static_cast<int>(std::clamp(m_sum[x] * mean, 0.0F, kLargestStep));
        samples[x] = static_cast<uint16_t>(code >> dropped << (dropped + 16 - kConverterBits));
    }
}

} // namespace

std::unique_ptr<SceneSource> MakeSkySource(const ModelFacts &model, const CameraOptions &options)
{
    return std::make_unique<SkySource>(model, options);
}

} // namespace vscsim
