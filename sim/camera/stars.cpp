#include "camera/view.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace vscsim {
namespace {

/// Stars between two brightnesses, in electrons per second.
struct Kind {
    int count; // on the reference area, and on larger sensors
    double faintest;
    double brightest;
};
constexpr Kind kKinds[] = {{1000, 1e3, 8e6}, // that short exposures show,
                           {1500, 10, 1e3}}; // and that long ones leave unsaturated
constexpr double kReferenceArea = 1936.0 * 1096;
constexpr double kMoffatBeta = 2.5;
constexpr double kMoffatWidthPx = 1.9;     // a full width at half maximum of 2.1 px
constexpr double kFaintestWing = 0.3;      // electrons; a star is drawn as far as it shows
constexpr double kFaintestWingPerS = 0.05; // in exposures however long
constexpr double kMarginPx = 80;           // around the sensor; no star reaches further
constexpr int kBandRows = 16;

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
    Colour colour = {1, 1, 1};
};

/// A star as one exposure shows it: a Moffat profile, the shape that turbulent air gives it.
struct Image {
    const Star *star = nullptr;
    double x = 0;
    double y = 0;
    double peak = 0;
    double reach = 0;
};

class Stars final : public View {
  public:
    Stars(const ModelFacts &model, uint64_t seed)
        : m_sites(model), m_width(model.sensorWidth), m_height(model.sensorHeight), m_random(seed),
          m_bands(static_cast<size_t>(m_height / kBandRows) + 1)
    {
        for (const Kind &kind : kKinds)
            Scatter(kind, model.Colour());
    }

    void Begin(const Appearance &appearance, const Window &window, double seconds) override;
    void AddTo(std::span<float> light, int left, int y) override;

  private:
    double Uniform(double from, double to)
    {
        return std::uniform_real_distribution<double>(from, to)(m_random);
    }
    void Scatter(const Kind &kind, bool inColours);
    void Add(const Image &image, std::span<float> light, int left, int y);

    Sites m_sites;
    int m_width;
    int m_height;
    std::mt19937_64 m_random;
    std::vector<Star> m_stars;
    std::vector<std::vector<Image>> m_bands; // of so many rows each, the stars that reach them
    float m_square = 1;                      // of the width of their profile
    std::vector<float> m_profile;            // of a star in one row
};

void Stars::Scatter(const Kind &kind, bool inColours)
{
    // The number of stars above a brightness falls with this power of it.
    constexpr double kPower = 0.7;
    const double ofFaintest = std::pow(kind.faintest, -kPower);
    const double ofBrightest = std::pow(kind.brightest, -kPower);
    const double area = static_cast<double>(m_width) * m_height / kReferenceArea;
    const auto count = static_cast<int>(kind.count * std::min(area, 1.0));
    for (int i = 0; i < count; ++i) {
        const double perSecond = std::pow(Uniform(ofBrightest, ofFaintest), -1.0 / kPower);
        const double kelvin = 2800.0 * std::pow(Uniform(1.0, 2.6), 2);
        Star star{.x = Uniform(-kMarginPx, m_width + kMarginPx),
                  .y = Uniform(-kMarginPx, m_height + kMarginPx),
                  .perSecond = perSecond};
        if (inColours)
            star.colour = ColourOf(kelvin);
        m_stars.push_back(star);
    }
}

void Stars::Begin(const Appearance &appearance, const Window &window, double seconds)
{
    const double width = kMoffatWidthPx * appearance.softness;
    m_square = static_cast<float>(width * width);
    const double faintestPerS = std::max(kFaintestWingPerS, kFaintestWing / seconds);
    std::ranges::for_each(m_bands, [](auto &band) { band.clear(); });
    for (const Star &star : m_stars) {
        Image image{.star = &star,
                    .x = Wrapped(star.x + appearance.shift.x, m_width, kMarginPx),
                    .y = Wrapped(star.y + appearance.shift.y, m_height, kMarginPx),
                    .peak = star.perSecond * (kMoffatBeta - 1) / (std::numbers::pi * m_square)};
        if (image.peak <= faintestPerS)
            continue;
        image.reach =
            std::min(width * std::pow(image.peak / faintestPerS, 0.5 / kMoffatBeta), kMarginPx);
        const int top = std::max(window.y, static_cast<int>(image.y - image.reach));
        const int bottom = std::min(
            {window.y + window.height - 1, m_height - 1, static_cast<int>(image.y + image.reach)});
        for (int band = top / kBandRows; top <= bottom && band <= bottom / kBandRows; ++band)
            m_bands.at(static_cast<size_t>(band)).push_back(image);
    }
}

void Stars::AddTo(std::span<float> light, int left, int y)
{
    for (const Image &image : m_bands.at(static_cast<size_t>(y / kBandRows)))
        Add(image, light, left, y);
}

void Stars::Add(const Image &image, std::span<float> light, int left, int y)
{
    const double dy = y - image.y;
    const double half = std::sqrt(std::max(image.reach * image.reach - dy * dy, 0.0));
    const int begin = std::max(left, static_cast<int>(std::ceil(image.x - half)));
    const int end = std::min(left + static_cast<int>(light.size()),
                             static_cast<int>(std::floor(image.x + half)) + 1);
    if (begin >= end)
        return;
    const auto count = static_cast<size_t>(end - begin);
    m_profile.resize(std::max(m_profile.size(), count));
    const auto fromCentre = static_cast<float>(begin - image.x);
    const auto row = 1 + static_cast<float>(dy * dy) / m_square;
    for (size_t i = 0; i < count; ++i) {
        const float dx = fromCentre + static_cast<float>(i);
        const float inverse = 1 / (row + dx * dx / m_square);
        m_profile[i] = inverse * inverse * std::sqrt(inverse); // to the power of kMoffatBeta
    }
    const std::array<float, 2> tint = m_sites.OfRow(y, image.star->colour);
    const auto peak = static_cast<float>(image.peak);
    float *const pixels = &light[static_cast<size_t>(begin - left)];
    for (size_t i = 0; i < count; ++i)
        pixels[i] += m_profile[i] * peak * tint[(static_cast<size_t>(begin) + i) & 1];
}

} // namespace

std::unique_ptr<View> MakeStars(const ModelFacts &model, uint64_t seed)
{
    return std::make_unique<Stars>(model, seed);
}

} // namespace vscsim
