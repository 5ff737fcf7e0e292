#include "camera/models.h"
#include "camera/scene_source.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

namespace vscsim {
namespace {

/// Stars between two brightnesses, in electrons per second.
struct Stars {
    int count; // on the reference area, and on larger sensors
    double faintest;
    double brightest;
};
constexpr Stars kStars[] = {{1200, 3e3, 5e7}, // that short exposures show,
                            {1500, 10, 3e3}}; // and that long ones leave unsaturated
constexpr double kReferenceArea = 1936.0 * 1096;
constexpr int kHotPixels = 250;
constexpr double kMoffatBeta = 2.5;
constexpr double kMoffatWidthPx = 1.9;     // a full width at half maximum of 2.1 px
constexpr double kFaintestWingPerS = 0.05; // electrons; a star is drawn as far as it shows
constexpr double kReferenceC = 20.0;
constexpr size_t kNoiseValues = size_t{1} << 16;
constexpr int kConverterBits = 12;
constexpr float kLargestStep = (1 << kConverterBits) - 1;

/// Response in the order of the mosaic's sites: red, green, blue.
using Colour = std::array<double, 3>;
constexpr Colour kWhiteResponse = {0.75, 1.0, 0.70};
constexpr Colour kSkyPerSecond = {280, 360, 250}; // at dusk, in electrons
constexpr Colour kNoColour = {1.0, 1.0, 1.0};

/// Relative to green, what a black body shines at the middle of each pass band.
Colour ColourOf(double kelvin)
{
    constexpr Colour kMetres = {610e-9, 540e-9, 465e-9};
    constexpr double kSecondRadiation = 1.4388e-2; // m K
    Colour colour{};
    for (size_t i = 0; i < colour.size(); ++i)
        colour[i] = kWhiteResponse[i] / (std::pow(kMetres[i] / kMetres[1], 4) *
                                         std::expm1(kSecondRadiation / (kMetres[i] * kelvin)));
    const double green = colour[1];
    for (double &part : colour)
        part /= green;
    return colour;
}

struct Star {
    double x = 0;
    double y = 0;
    double perSecond = 0; // electrons of all its pixels, in green
    Colour colour = kNoColour;
};

struct HotPixel {
    int x = 0;
    int y = 0;
    float perSecond = 0; // at the reference temperature
};

/// A night sky over the sensor. Stars and colours come from the seed; so does the noise, whose
/// draws go on from frame to frame. Hot pixels are those of the sensor, whatever it looks at.
class SkySource final : public SceneSource {
  public:
    SkySource(const ModelFacts &model, const CameraOptions &options)
        : m_model(model), m_glow(options.glow), m_capped(options.capped),
          m_flawless(options.flawless), m_pixel(PixelFactsOf(model)), m_random(options.seed),
          m_noise(kNoiseValues),
          m_light(static_cast<size_t>(model.sensorWidth) * static_cast<size_t>(model.sensorHeight))
    {
        std::ranges::for_each(kStars, [this](const Stars &stars) { Scatter(stars); });
        ScatterHotPixels();
        std::normal_distribution<float> normal;
        if (!m_flawless)
            std::ranges::generate(m_noise, [&] { return normal(m_random); });
        if (m_capped) // else a dark frame would have the noise of the picture it is meant for
            m_random.seed(~options.seed);
        DrawSky();
    }

    void Begin(const SensorReadout &sensor, const Exposure &exposure) override;
    void Row(int row, std::span<uint16_t> samples) override;

  private:
    double Uniform(double from, double to)
    {
        return std::uniform_real_distribution<double>(from, to)(m_random);
    }
    size_t SiteOf(int x, int y) const;
    std::span<float> LightRow(int y)
    {
        const auto width = static_cast<size_t>(m_model.sensorWidth);
        return std::span(m_light).subspan(static_cast<size_t>(y) * width, width);
    }
    void Scatter(const Stars &stars);
    void ScatterHotPixels();
    void DrawSky();
    void DrawStar(const Star &star);
    void ExposeRow(int y, std::span<float> steps);
    int PlaceOf(int binnedPlace, int part) const;

    ModelFacts m_model;
    Colour m_glow;
    bool m_capped;
    bool m_flawless;
    PixelFacts m_pixel;
    std::mt19937_64 m_random;
    std::vector<float> m_noise; // normal deviates
    std::vector<Star> m_stars;
    std::vector<HotPixel> m_hotPixels; // from the top
    std::vector<float> m_light;        // electrons per second, of the whole sensor
    GuidePort::Shift m_drawnAt;

    SensorReadout m_sensor;
    float m_seconds = 0;
    float m_darkPerSecond = 0;
    float m_darkFactor = 1; // against the reference temperature
    float m_stepsPerElectron = 1;
    std::vector<float> m_steps; // of a row of pixels
    std::vector<float> m_sum;   // of those that are binned
};

/// 0 red, 1 green, 2 blue; without colours all are like green.
size_t SkySource::SiteOf(int x, int y) const
{
    const int redX = m_model.mosaic == Mosaic::BG || m_model.mosaic == Mosaic::GR ? 1 : 0;
    const int redY = m_model.mosaic == Mosaic::BG || m_model.mosaic == Mosaic::GB ? 1 : 0;
    return m_model.Colour() ? static_cast<size_t>(((x ^ redX) & 1) + ((y ^ redY) & 1)) : 1;
}

void SkySource::Scatter(const Stars &stars)
{
    // The number of stars above a brightness falls with this power of it.
    constexpr double kPower = 0.7;
    const double ofFaintest = std::pow(stars.faintest, -kPower);
    const double ofBrightest = std::pow(stars.brightest, -kPower);
    const double area = static_cast<double>(m_light.size()) / kReferenceArea;
    const auto count = static_cast<int>(stars.count * std::min(area, 1.0));
    for (int i = 0; i < count; ++i) {
        const double perSecond = std::pow(Uniform(ofBrightest, ofFaintest), -1.0 / kPower);
        const double kelvin = 2800.0 * std::pow(Uniform(1.0, 2.6), 2);
        m_stars.push_back({.x = Uniform(0, m_model.sensorWidth),
                           .y = Uniform(0, m_model.sensorHeight),
                           .perSecond = perSecond,
                           .colour = m_model.Colour() ? ColourOf(kelvin) : kNoColour});
    }
}

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

void SkySource::DrawSky()
{
    if (m_capped)
        return;
    std::array<float, 3> glow{};
    for (size_t i = 0; i < glow.size(); ++i)
        glow[i] = static_cast<float>(kSkyPerSecond[i] * m_glow[i]);
    for (int y = 0; y < m_model.sensorHeight; ++y) {
        const std::span<float> light = LightRow(y);
        for (int x = 0; x < m_model.sensorWidth; ++x)
            light[static_cast<size_t>(x)] = glow[SiteOf(x, y)];
    }
    for (const Star &star : m_stars)
        DrawStar(star);
}

/// A Moffat profile, the shape that turbulent air gives a star.
void SkySource::DrawStar(const Star &star)
{
    constexpr double kPi = 3.14159265358979;
    constexpr double kSquare = kMoffatWidthPx * kMoffatWidthPx;
    const double centreX = star.x + m_drawnAt.x;
    const double centreY = star.y + m_drawnAt.y;
    const double peak = star.perSecond * (kMoffatBeta - 1) / (kPi * kSquare);
    const double reach =
        kMoffatWidthPx * std::pow(std::max(peak / kFaintestWingPerS, 1.0), 0.5 / kMoffatBeta);
    const int left = std::max(0, static_cast<int>(std::floor(centreX - reach)));
    const int right = std::min(m_model.sensorWidth - 1, static_cast<int>(centreX + reach));
    const int top = std::max(0, static_cast<int>(std::floor(centreY - reach)));
    const int bottom = std::min(m_model.sensorHeight - 1, static_cast<int>(centreY + reach));
    for (int y = top; y <= bottom; ++y) {
        const std::span<float> light = LightRow(y);
        for (int x = left; x <= right; ++x) {
            const double dx = x - centreX;
            const double dy = y - centreY;
            const double part = std::pow(1 + (dx * dx + dy * dy) / kSquare, -kMoffatBeta);
            light[static_cast<size_t>(x)] +=
                static_cast<float>(peak * part * star.colour[SiteOf(x, y)]);
        }
    }
}

void SkySource::Begin(const SensorReadout &sensor, const Exposure &exposure)
{
    m_sensor = sensor;
    m_seconds = std::chrono::duration<float>(exposure.duration).count();
    const double doublings = (exposure.celsius - kReferenceC) / m_pixel.darkDoublesEveryC;
    m_darkFactor = m_flawless ? 0.0F : static_cast<float>(std::exp2(doublings));
    m_darkPerSecond = static_cast<float>(m_pixel.darkElectronsPerSecond) * m_darkFactor;
    m_stepsPerElectron = static_cast<float>(sensor.gain / m_pixel.electronsPerStep);
    if (exposure.shift != m_drawnAt) {
        m_drawnAt = exposure.shift;
        DrawSky();
    }
}

/// Steps of the converter, not yet rounded, for the window's part of one row of pixels.
void SkySource::ExposeRow(int y, std::span<float> steps)
{
    const auto left = static_cast<size_t>(m_sensor.window.x);
    const std::span<const float> light = LightRow(y).subspan(left, steps.size());
    const auto readVariance =
        static_cast<float>(m_pixel.readNoiseElectrons * m_pixel.readNoiseElectrons);
    for (size_t x = 0; x < steps.size(); ++x)
        steps[x] = (light[x] + m_darkPerSecond) * m_seconds;
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
