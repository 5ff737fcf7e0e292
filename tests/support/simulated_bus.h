#pragma once

#include "standin/bus.h"
#include "support/virtual_time.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace vsccam {

/// A test on an empty simulated bus in virtual time. When it ends, nothing of libusb may be left,
/// and nothing may have been used in a way that libusb forbids.
class SimulatedBus : public testing::Test {
  protected:
    explicit SimulatedBus(uint64_t seed = 1, vscsim::Time start = vscsim::VirtualClock::kStart)
        : m_time(start)
    {
        vscsim::Bus::Instance().Reset(seed);
        m_allowed.contextReferences = vscsim::Bus::Instance().LiveObjects().contextReferences;
    }
    ~SimulatedBus() override { vscsim::Bus::Instance().Reset(); }

    /// Override it to close what the test opened, and call it at the end.
    void TearDown() override
    {
        const auto left = vscsim::Bus::Instance().LiveObjects();
        EXPECT_EQ(left.contextReferences, m_allowed.contextReferences);
        EXPECT_EQ(left.deviceLists, m_allowed.deviceLists);
        EXPECT_EQ(left.deviceReferences, m_allowed.deviceReferences);
        EXPECT_EQ(left.handles, m_allowed.handles);
        EXPECT_EQ(left.claimedInterfaces, m_allowed.claimedInterfaces);
        EXPECT_EQ(left.transfers, m_allowed.transfers);
        EXPECT_EQ(left.transfersInFlight, m_allowed.transfersInFlight);
        EXPECT_EQ(vscsim::Bus::Instance().TakeMisuse(), std::vector<std::string>());
    }

    /// What may be left, for a test that leaves something on purpose.
    vscsim::Bus::Objects m_allowed;

  private:
    VirtualTime m_time; // outlives everything on the bus
};

} // namespace vsccam
