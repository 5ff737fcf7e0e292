// vsccam.hpp, over the exported functions.
#include "library/host_fixture.h"

#include <vsccam.hpp>

using namespace std::chrono_literals;

namespace vsccam {
namespace {

/// An exposure sleeps by the clock of the machine, for which nothing would move.
void AwaitEnd(const Exposure &exposure)
{
    while (!exposure.Done())
        pulseGuide(GUIDE_NORTH, 20);
}

TEST_F(HostTest, AnObjectOwnsTheCameraThatIsOpen)
{
    EXPECT_TRUE(Cameras().empty());
    EXPECT_THROW(Camera(), Error);
    Bus().Plug("VSC470MC");
    EXPECT_EQ(Cameras(), std::vector<std::string>{"KYR VSC470MC"});
    {
        const Camera camera;
        EXPECT_EQ(camera.Model(), "KYR VSC470MC");
        EXPECT_THROW(Camera(), Error);
        EXPECT_EQ(getMaxWidth(), 1936); // and leaves the first one alone
    }
    EXPECT_EQ(getMaxWidth(), 0);
    EXPECT_EQ(Camera().GetExposure(), 10ms); // a temporary as well
}

TEST_F(HostTest, ObjectsSetWhatTheModelHasAndRefuseTheRest)
{
    Bus().Plug("VSC470MC");
    ASSERT_EQ(Cameras().size(), 1U);
    Camera camera;
    camera.SetAuto(CONTROL_GAIN);
    camera.SetExposure(1h);
    EXPECT_EQ(camera.GetExposure(), 2000s);
    EXPECT_THROW(camera.Set(CONTROL_TARGET_TEMP, -10), Error);
    EXPECT_THROW(camera.SetAuto(CONTROL_GAMMA), Error);
    EXPECT_THROW(camera.SetShape({1, 1, VSC_IMG_RAW8}), Error);
    EXPECT_EQ(getWidth(), 1936);
}

TEST_F(HostTest, CapturesEndWithTheirObjectsAndFillFramesOfEveryShape)
{
    const int device = Bus().Plug("VSC470MC");
    ASSERT_EQ(Cameras().size(), 1U);
    Camera camera;
    camera.SetExposure(10ms);
    Frame frame;
    for (const int type : {VSC_IMG_RAW8, VSC_IMG_RGB24, VSC_IMG_RAW16, VSC_IMG_Y8})
        for (const int bin : {1, 2}) {
            camera.SetType(type, bin);
            {
                Video video(camera);
                EXPECT_TRUE(video.Read(frame, 5s));
                EXPECT_EQ(video.Dropped(), 0);
            }
            Bytes more(FrameBytes());
            EXPECT_FALSE(getImageData(more.data(), static_cast<int>(more.size()), 1000));
            EXPECT_EQ(frame.GetShape(), (Shape{1936 / bin, 1096 / bin, type}));
            Exposure exposure(camera);
            AwaitEnd(exposure);
            exposure.Read(frame);
            EXPECT_EQ(frame.Bytes().size(), more.size());
            EXPECT_EQ(frame.Row(1).data(), &frame.Bytes()[frame.GetShape().BytesPerRow()]);
            EXPECT_EQ(frame.Row<uint16_t>(0).size() * 2, frame.Row(0).size());
        }
    camera.SetExposure(60s);
    EXPECT_FALSE(Exposure(camera).Done());
    EXPECT_EQ(getExpStatus(), VSC_EXP_IDLE);
    Exposure lost(camera);
    Bus().Unplug(device);
    AwaitEnd(lost);
    EXPECT_THROW(lost.Read(frame), Error);
}

} // namespace
} // namespace vsccam
