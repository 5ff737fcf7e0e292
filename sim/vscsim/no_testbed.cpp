#include "vscsim/testbed.h"

// Where there is no umockdev, cameras can be served, but no program can be run with them.
namespace vscsim {

struct Testbed::State {
    std::string error = "built without umockdev, which run needs; serve works";
};

Testbed::Testbed(const std::vector<BusDevice> &, size_t) : m_state(std::make_unique<State>()) {}

Testbed::~Testbed() = default;

const std::string &Testbed::Error() const
{
    return m_state->error;
}

} // namespace vscsim
