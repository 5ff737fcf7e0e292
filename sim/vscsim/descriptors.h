#pragma once

#include "camera/camera.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vscsim {

/// What a camera tells of itself on the bus, and the standard requests that ask for it.
class Descriptors {
  public:
    static constexpr uint8_t kConfiguration = 1;
    static constexpr uint8_t kInterface = 0;

    Descriptors(const ModelFacts &model, LinkSpeed link);

    const std::string &Product() const { return m_product; }
    const std::string &Manufacturer() const { return m_manufacturer; }

    /// Device and configuration descriptor in a row, as the kernel shows them in sysfs.
    std::vector<uint8_t> Sysfs() const;

    /// Answers a standard request: what a device tells of itself. Those that change something are
    /// stalled; a USB core does not let programs send them.
    ControlReply Answer(const ControlRequest &request) const;

  private:
    std::vector<uint8_t> OfType(int type, int index) const;
    std::vector<uint8_t> String(int index) const;

    std::string m_manufacturer;
    std::string m_product;
    std::vector<uint8_t> m_device;
    std::vector<uint8_t> m_configuration;
    std::vector<uint8_t> m_objectStore;
};

} // namespace vscsim
