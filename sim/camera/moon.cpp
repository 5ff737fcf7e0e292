#include "camera/models.h"
#include "camera/view.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace vscsim {
namespace {

// The aperture is one for the sensor: at its usual gain, 10 ms do not saturate it.
constexpr double kStepsPerSecond = 2.2e4;
constexpr double kLargestRadiusPx = 700;
constexpr double kShareOfHeight = 0.43;
constexpr int kBorderPx = 8; // of the map, for what is blurred over the limb
constexpr double kPhaseAngle = 70 * std::numbers::pi / 180;
constexpr double kPoleAngle = 0.35;
constexpr int kCraters = 3000;

/// A point on the sphere, or a direction: z is towards the camera.
struct Vector {
    double x = 0;
    double y = 0;
    double z = 0;

    double Dot(const Vector &other) const { return x * other.x + y * other.y + z * other.z; }
};

struct Patch {
    double x, y;
    double radius;
};

// Dark plains. Only their places are like the Moon's.
constexpr Patch kMaria[] = {{-0.45, -0.42, 0.30}, {0.15, -0.40, 0.20}, {0.36, -0.16, 0.22},
                            {0.62, -0.32, 0.12},  {0.58, 0.08, 0.18},  {-0.60, 0.02, 0.36},
                            {-0.32, 0.42, 0.20},  {0.42, 0.26, 0.12},  {0.0, -0.72, 0.12}};

struct Crater {
    Vector centre;
    double radius; // of that of the Moon
};

/// A square picture of floats.
struct Map {
    explicit Map(int pixels)
        : side(pixels), values(static_cast<size_t>(side) * static_cast<size_t>(side))
    {
    }

    std::span<float> Row(int y)
    {
        const auto width = static_cast<size_t>(side);
        return std::span(values).subspan(static_cast<size_t>(y) * width, width);
    }

    int side;
    std::vector<float> values;
};

std::vector<Crater> ScatterCraters()
{
    std::mt19937_64 random(1969); // there is one Moon
    const auto uniform = [&random](double from, double to) {
        return std::uniform_real_distribution<double>(from, to)(random);
    };
    std::vector<Crater> craters;
    for (int i = 0; i < kCraters; ++i) {
        const double z = uniform(0.05, 1);
        const double angle = uniform(0, 2 * std::numbers::pi);
        const double flat = std::sqrt(1 - z * z);
        craters.push_back({.centre = {flat * std::cos(angle), flat * std::sin(angle), z},
                           .radius = 0.005 * std::pow(uniform(0.001, 1), -0.42)});
    }
    return craters;
}

/// How steep a crater's ground rises towards its rim, at a distance in its radii: from a flat floor
/// to the rim, and down again outside.
double SlopeOf(double distance)
{
    constexpr double kFloor = 0.5;
    constexpr double kFoot = 1.5;
    if (distance < 1)
        return std::max(distance - kFloor, 0.0) / (1 - kFloor);
    return distance < kFoot ? -0.5 * (kFoot - distance) / (kFoot - 1) : 0;
}

/// Moves places to and fro, so that what is round gets uneven shores.
double Warp(double along, double across)
{
    return 0.05 * std::sin(6 * across + 2 * along) + 0.025 * std::sin(17 * along - 13 * across) +
           0.012 * std::sin(41 * across + 33 * along) + 0.006 * std::sin(83 * along + 97 * across);
}

double Albedo(double x, double y)
{
    constexpr double kShore = 0.09;
    const double warpedX = x + Warp(x, y);
    const double warpedY = y + Warp(y, -x);
    double dark = 0;
    for (const Patch &mare : kMaria) {
        const double inside = mare.radius - std::hypot(warpedX - mare.x, warpedY - mare.y);
        dark = std::max(dark, std::clamp(inside / kShore + 0.5, 0.0, 1.0));
    }
    const double mottled =
        std::sin(21 * x + 4 * std::sin(11 * y)) * std::sin(19 * y + 5 * std::sin(13 * x));
    return 1 - 0.45 * dark + 0.05 * mottled;
}

/// Draws the Moon as the telescope would show it without air.
class Painter {
  public:
    explicit Painter(double radiusPx)
        : m_radius(radiusPx), m_map(2 * (static_cast<int>(radiusPx) + kBorderPx) + 1),
          m_tilts(m_map.values.size())
    {
    }

    Map Paint()
    {
        for (const Crater &crater : ScatterCraters())
            Dig(crater);
        for (int y = 0; y < m_map.side; ++y)
            for (int x = 0; x < m_map.side; ++x)
                m_map.Row(y)[static_cast<size_t>(x)] = Brightness(x, y);
        return std::move(m_map);
    }

  private:
    struct Tilt {
        float x = 0;
        float y = 0;
    };

    double Place(int pixel) const { return (pixel - (m_map.side - 1) / 2.0) / m_radius; }
    int Pixel(double place) const
    {
        const int pixel = static_cast<int>(std::lround(place * m_radius)) + m_map.side / 2;
        return std::clamp(pixel, 0, m_map.side - 1);
    }
    Tilt &TiltAt(int x, int y)
    {
        return m_tilts[static_cast<size_t>(y) * static_cast<size_t>(m_map.side) +
                       static_cast<size_t>(x)];
    }
    void Dig(const Crater &crater);
    float Brightness(int x, int y);

    double m_radius;
    Map m_map;
    std::vector<Tilt> m_tilts; // of the ground against a smooth sphere
};

void Painter::Dig(const Crater &crater)
{
    constexpr double kSteepest = 0.7;
    const double reach = 1.5 * crater.radius;
    for (int py = Pixel(crater.centre.y - reach); py <= Pixel(crater.centre.y + reach); ++py) {
        for (int px = Pixel(crater.centre.x - reach); px <= Pixel(crater.centre.x + reach); ++px) {
            const double x = Place(px);
            const double y = Place(py);
            const double square = x * x + y * y;
            if (square >= 1)
                continue;
            const Vector to = {x - crater.centre.x, y - crater.centre.y,
                               std::sqrt(1 - square) - crater.centre.z};
            const double distance = std::sqrt(to.Dot(to));
            const double slope = kSteepest * SlopeOf(distance / crater.radius);
            if (slope == 0 || distance == 0)
                continue;
            TiltAt(px, py).x -= static_cast<float>(slope * to.x / distance);
            TiltAt(px, py).y -= static_cast<float>(slope * to.y / distance);
        }
    }
}

/// Dust shines back what falls on it at any angle, so that the limb is as bright as the middle.
float Painter::Brightness(int px, int py)
{
    static const Vector kSun = {std::sin(kPhaseAngle) * std::cos(kPoleAngle),
                                std::sin(kPhaseAngle) * std::sin(kPoleAngle),
                                std::cos(kPhaseAngle)};
    const double x = Place(px);
    const double y = Place(py);
    const double square = x * x + y * y;
    const double covered = std::clamp((1 - std::sqrt(square)) * m_radius + 0.5, 0.0, 1.0);
    if (covered == 0)
        return 0;
    const double towardsCamera = std::sqrt(std::max(1 - square, 1e-4));
    const Tilt &tilt = TiltAt(px, py);
    Vector ground = {x + tilt.x, y + tilt.y, towardsCamera};
    const double length = std::sqrt(ground.Dot(ground));
    const double towardsSun = std::max(ground.Dot(kSun) / length, 0.0);
    const double shine = 2 * towardsSun / (towardsSun + towardsCamera + 0.05);
    return static_cast<float>(covered * Albedo(x, y) * shine);
}

/// The mean of five pixels along each axis, twice.
Map Softened(Map map)
{
    constexpr int kReach = 2;
    Map other(map.side);
    const auto alongX = [](Map &from, Map &to) {
        for (int y = 0; y < from.side; ++y)
            for (int x = kReach; x < from.side - kReach; ++x) {
                const auto part =
                    from.Row(y).subspan(static_cast<size_t>(x - kReach), 2 * kReach + 1);
                float sum = 0;
                for (const float value : part)
                    sum += value;
                to.Row(x)[static_cast<size_t>(y)] = sum / (2 * kReach + 1); // turned
            }
    };
    for (int i = 0; i < 2; ++i) {
        alongX(map, other);
        alongX(other, map);
    }
    return map;
}

/// The Moon a day before its first quarter's end: the part of the sensor that it takes up is sent
/// through the air anew for each frame, as a mixture of a sharp and of a soft picture of it.
class Moon final : public View {
  public:
    explicit Moon(const ModelFacts &model)
        : m_sites(model), m_width(model.sensorWidth), m_height(model.sensorHeight),
          m_perSecond(kStepsPerSecond * PixelFactsOf(model).electronsPerStep),
          m_sharp(Painter(std::min(kShareOfHeight * m_height, kLargestRadiusPx)).Paint()),
          m_soft(Softened(m_sharp)), m_line(static_cast<size_t>(m_sharp.side))
    {
    }

    void Begin(const Appearance &appearance, const Window &, double) override
    {
        const double half = (m_sharp.side - 1) / 2.0;
        m_left = Wrapped(m_width / 2.0 + appearance.shift.x, m_width, half) - half;
        m_top = Wrapped(m_height / 2.0 + appearance.shift.y, m_height, half) - half;
        m_softness = static_cast<float>(std::clamp(appearance.softness * 0.9 - 0.5, 0.0, 1.0));
    }
    void AddTo(std::span<float> light, int left, int y) override;

  private:
    Sites m_sites;
    int m_width;
    int m_height;
    double m_perSecond; // electrons of a pixel
    Map m_sharp;
    Map m_soft;
    std::vector<float> m_line; // of the maps, as it falls on a row of the sensor
    double m_left = 0;         // of the maps, on the sensor
    double m_top = 0;
    float m_softness = 0;
};

void Moon::AddTo(std::span<float> light, int left, int y)
{
    const double place = y - m_top;
    const int row = static_cast<int>(std::floor(place));
    if (row < 0 || row + 1 >= m_sharp.side)
        return;
    const auto below = static_cast<float>(place - row);
    const std::span<const float> maps[] = {m_sharp.Row(row), m_sharp.Row(row + 1), m_soft.Row(row),
                                           m_soft.Row(row + 1)};
    const float shares[] = {(1 - m_softness) * (1 - below), (1 - m_softness) * below,
                            m_softness * (1 - below), m_softness * below};
    for (size_t i = 0; i < m_line.size(); ++i)
        m_line[i] = maps[0][i] * shares[0] + maps[1][i] * shares[1] + maps[2][i] * shares[2] +
                    maps[3][i] * shares[3];
    const int begin = std::max(left, static_cast<int>(std::ceil(m_left)));
    const int end = std::min(left + static_cast<int>(light.size()),
                             static_cast<int>(std::floor(m_left)) + m_sharp.side - 1);
    const double first = begin - m_left;
    const auto from = static_cast<size_t>(first);
    const auto beside = static_cast<float>(first - std::floor(first));
    const auto tint = m_sites.OfRow(y, kWhiteResponse);
    const auto perSecond = static_cast<float>(m_perSecond);
    for (int x = begin; x < end; ++x) {
        const size_t at = from + static_cast<size_t>(x - begin);
        light[static_cast<size_t>(x - left)] +=
            (m_line[at] * (1 - beside) + m_line[at + 1] * beside) * perSecond *
            tint[static_cast<size_t>(x & 1)];
    }
}

} // namespace

std::unique_ptr<View> MakeMoon(const ModelFacts &model)
{
    return std::make_unique<Moon>(model);
}

} // namespace vscsim
