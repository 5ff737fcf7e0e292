#include "base/sync.h"
#include "library/wire.h"
#include "models/sony/s470.h"
#include "support/simulated_bus.h"

#include <algorithm>
#include <utility>

namespace vsccam {
namespace {

using IdentityTest = SimulatedBus;
using Lines = std::vector<std::string>;

constexpr CameraId kId = {1, 2, 3, 4, 5, 6, 7, 8};

vscsim::CameraOptions WithFaults(const char *plan)
{
    return {.faults = vscsim::ParseFaultPlan(plan, nullptr).value()};
}

const Lines kErase = Wire("flash erase 7; flash status 7; flash status 7; flash status 7;"
                          "flash status 7"); // the erase takes three polls
const Lines kAttempt = Wire("flash write 070000+256; flash read 070000+256");

/// The flash is out of reach while the data bus is wide.
Lines Narrowed(const Lines &requests)
{
    return Wire("gpif32 off") + requests + Wire("gpif32 on");
}

TEST_F(IdentityTest, IsNotReadWhileItIsWritten)
{
    const Lines read = Narrowed(Wire("flash read 070000+256"));
    const Lines written = Narrowed(kErase + kAttempt);
    OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
    Thread reader;
    ASSERT_TRUE(reader.Start([&camera] {
        CameraId id{};
        (void)camera->ReadIDFromSPI(&id); // of before or after: the wire tells
    }));
    EXPECT_TRUE(camera->WriteIDToSPI(kId)); // waits for the erased sector
    reader.Join();
    const Lines traffic = camera.Traffic();
    EXPECT_TRUE(traffic == read + written || traffic == written + read)
        << testing::PrintToString(traffic);
}

// The answer to the read (C3) begins with the tag's two bytes, then come those of the identity.
TEST_F(IdentityTest, IsErasedOnceAndWrittenUpToThreeTimes)
{
    const struct {
        const char *faults;
        bool written;
        Lines wire;
    } cases[] = {
        {"", true, kErase + kAttempt},
        {"corrupt-answer:c3x2=5", true, kErase + kAttempt + kAttempt + kAttempt},
        {"corrupt-answer:c3x3=5", false, kErase + kAttempt + kAttempt + kAttempt},
        {"corrupt-answer:c3x*=6", true, kErase + kAttempt}, // no longer compared
        {"refuse-request:c3", true, kErase + kAttempt + kAttempt},
        {"refuse-request:c2", true, kErase + kAttempt + kAttempt},
        {"refuse-request:c4", false, Wire("flash erase 7")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.faults);
        OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM",
                            *c.faults ? WithFaults(c.faults) : vscsim::CameraOptions());
        EXPECT_EQ(camera->WriteIDToSPI(kId), c.written);
        EXPECT_EQ(camera.Traffic(), Narrowed(c.wire));
        vscsim::Bus::Instance().With(camera.Device(), [&c](vscsim::Camera &device) {
            const bool whole = std::ranges::equal(kId, device.Flash().subspan(0x70002, kId.size()));
            EXPECT_TRUE(whole || !c.written);
        });
    }
}

TEST_F(IdentityTest, IsReadWholeOrNotAtAll)
{
    constexpr CameraId kOther = {9, 9, 9, 9, 9, 9, 9, 9};
    const struct {
        const char *faults;
        bool found;
        CameraId id; // afterwards
    } cases[] = {
        {"refuse-request:c3", false, kOther},
        {"corrupt-answer:c3=1", false, kOther},
        {"short-answer:c3=1", false, kOther},
        {"short-answer:c3=5", true, {1, 2, 3, 0, 0, 0, 0, 0}}, // never what lay in memory before
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.faults);
        OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM", WithFaults(c.faults));
        vscsim::Bus::Instance().With(camera.Device(), [](vscsim::Camera &device) {
            const auto end = std::ranges::copy(std::string("ID"), &device.Flash()[0x70000]).out;
            std::ranges::copy(kId, end);
        });
        CameraId id = kOther;
        EXPECT_EQ(camera->ReadIDFromSPI(&id), c.found);
        EXPECT_EQ(id, c.id);
        EXPECT_EQ(camera.Traffic(), Narrowed(Wire("flash read 070000+256")));
    }
}

} // namespace
} // namespace vsccam
