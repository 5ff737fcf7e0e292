#pragma once

#include "vscsim/bus_device.h"

#include <memory>
#include <string>
#include <vector>

namespace vscsim {

/// A USB bus of simulated cameras, as umockdev shows it to programs that were started with its
/// library preloaded and with UMOCKDEV_DIR in their environment. Creating a bus sets that variable.
/// The cameras live in a thread of umockdev. At most one bus per process.
class Testbed {
  public:
    /// @param memoryLimit  bytes of transfers that may be in flight per camera
    Testbed(const std::vector<BusDevice> &devices, size_t memoryLimit);
    ~Testbed();
    Testbed(const Testbed &) = delete;
    Testbed &operator=(const Testbed &) = delete;

    /// Why the bus could not be made; empty when it stands.
    const std::string &Error() const;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace vscsim
