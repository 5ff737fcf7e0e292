#include "camera/pattern.h"
#include "camera/scene_source.h"

#include <algorithm>

namespace vscsim {
namespace {

class PatternSource final : public SceneSource {
  public:
    void Begin(const SensorReadout &sensor, const Exposure &exposure) override
    {
        m_sensor = sensor;
        m_frame = exposure.frame;
    }

    void Row(int row, std::span<uint16_t> samples) override
    {
        const int y = m_sensor.window.y + row * m_sensor.bin;
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] =
                PatternSample(m_frame, m_sensor.window.x + static_cast<int>(i) * m_sensor.bin, y);
    }

  private:
    SensorReadout m_sensor;
    uint32_t m_frame = 0;
};

} // namespace

std::unique_ptr<SceneSource> MakePatternSource()
{
    return std::make_unique<PatternSource>();
}

} // namespace vscsim
