#pragma once

#include "camera/camera.h"
#include "camera/guide_port.h"
#include "camera/sensor.h"

#include <array>
#include <memory>
#include <span>

namespace vscsim {

/// Response in the order of the mosaic's sites: red, green, blue.
using Colour = std::array<double, 3>;
inline constexpr Colour kWhiteResponse = {0.75, 1.0, 0.70};

/// Which pixels see which colour.
class Sites {
  public:
    explicit Sites(const ModelFacts &model)
        : m_colour(model.Colour()),
          m_redX(model.mosaic == Mosaic::BG || model.mosaic == Mosaic::GR ? 1 : 0),
          m_redY(model.mosaic == Mosaic::BG || model.mosaic == Mosaic::GB ? 1 : 0)
    {
    }

    /// Of the pixels of a row, those at even places and those at odd ones.
    std::array<float, 2> OfRow(int y, const Colour &light) const
    {
        return {static_cast<float>(light[At(0, y)]), static_cast<float>(light[At(1, y)])};
    }

  private:
    /// 0 red, 1 green, 2 blue; without colours all are like green.
    size_t At(int x, int y) const
    {
        return m_colour ? static_cast<size_t>(((x ^ m_redX) & 1) + ((y ^ m_redY) & 1)) : 1;
    }

    bool m_colour;
    int m_redX;
    int m_redY;
};

/// What mount and air make of the picture while a frame is exposed.
struct Appearance {
    GuidePort::Shift shift = {}; // pixels
    double softness = 1;         // of the width that a star has on average
};

/// The mount follows the sky not quite, and the air is never still. Both depend on the seed and on
/// the time that was exposed so far, so that a sky can be seen again however fast frames are taken.
class Air {
  public:
    /// @param unsteady     1 as on an average night, 0 not at all
    /// @param driftPerS    pixels
    Air(uint64_t seed, double unsteady, double driftPerS);

    /// The mean over an exposure. Stars make no trails: they are where they were in its middle.
    Appearance During(Time begins, Time duration) const;

  private:
    static constexpr size_t kWaves = 5;
    using Waves = std::array<double, kWaves>; // their phases
    static double Mean(const Waves &phases, double middleS, double durationS);

    double m_unsteady;
    double m_driftPerS;
    std::array<Waves, 3> m_phases{}; // of places along x, along y, and of the softness
};

/// What stands before the telescope.
class View {
  public:
    View() = default;
    View(const View &) = delete;
    View &operator=(const View &) = delete;
    virtual ~View() = default;

    /// Rows of one exposure follow, in any order.
    virtual void Begin(const Appearance &appearance, const Window &window, double seconds) = 0;

    /// Adds its light to what the pixels of a row get from `left` on, in electrons per second.
    virtual void AddTo(std::span<float> light, int left, int y) = 0;
};

std::unique_ptr<View> MakeStars(const ModelFacts &model, uint64_t seed);
std::unique_ptr<View> MakeMoon(const ModelFacts &model);

/// Where something is that leaves the sensor on one side, and comes in on the other one.
/// @param margin  so far from the sensor nothing of it can be seen
double Wrapped(double place, int sensorPixels, double margin);

} // namespace vscsim
