#include "library/host_fixture.h"
#include "library/wire.h"
#include "models/python/s048.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>

namespace vsccam {
namespace {

using Lines = std::vector<std::string>;

/// What has to reach a camera, step by step, and the sensor's registers as they follow from it.
class Expected {
  public:
    /// Groups as Wire() has them, and "python 8=153 17[0:7]=19": decimal, as the sensor numbers its
    /// registers; bits are changed by reading their register first.
    Expected &Then(const std::string &text)
    {
        std::istringstream groups(text);
        for (std::string group; std::getline(groups, group, ';');) {
            std::istringstream words(group);
            std::string word;
            words >> word;
            if (word != "python")
                m_lines = m_lines + Wire(group);
            else
                while (words >> word)
                    AddSensorWrite(word);
        }
        return *this;
    }

    Expected &PowerUp()
    {
        return Then("host?; gpif32 off; flash read 040000+2048; gpif32 on; firmware?;"
                    "fpga 1D? 1E? 1F?")
            .Then("python 8=153 9=9 10=2457")
            .Then("python 2[0:0]=0 2[1:1]=0 32[3:3]=0 32[2:2]=1 32[12:14]=0 32[12:14]=2 32[4:5]=0 "
                  "20[0:0]=0 17[13:14]=1 17[8:12]=1 17[0:7]=19 26[0:7]=128 26[8:10]=2 26[12:14]=2 "
                  "27[0:7]=45 27[8:15]=61 8[0:3]=0 8[4:7]=0 16[2:2]=0 16[0:0]=1 16[1:1]=1")
            .Then("python 9[0:3]=0 32[1:1]=1 34[0:0]=1 128[15:15]=0")
            .Then("python 65[0:0]=1 129[13:13]=0 211[4:6]=4 192[15:15]=0 194[6:7]=0 197=1 "
                  "224[0:3]=2 224[4:7]=0 129[1:9]=0 129[0:0]=1 211[3:3]=1 207[0:7]=0 129[15:15]=1 "
                  "128[0:7]=20 128[8:10]=7 128[11:14]=8 204[0:4]=3 204[5:12]=15 41[8:10]=0 "
                  "41[11:12]=1 42[4:6]=1 211[1:1]=0 215[1:1]=1 215[2:2]=1 215[3:3]=1 215[4:4]=1 "
                  "215[9:9]=0 215[11:11]=0 215[12:12]=1 227[4:4]=0 43[1:1]=0 43[2:2]=0 43[3:3]=1 "
                  "43[0:0]=0 70[0:3]=1 70[4:7]=1 70[8:11]=1 70[12:15]=1 67[0:3]=5 67[4:7]=6 "
                  "67[8:11]=6 67[12:15]=0 66[0:3]=6 66[4:7]=12 68[0:3]=5 194[9:9]=1 192[11:13]=1")
            .Then("python 32[0:0]=1 10[0:3]=0 10[4:7]=0 10[8:11]=0 64[0:0]=1 72[0:0]=1 72[1:1]=1 "
                  "72[2:2]=1 42[0:0]=1 42[1:1]=1 40[0:0]=1 40[1:1]=1 40[2:2]=0 48[0:0]=1 "
                  "112[0:2]=7")
            .NormalProgram()
            .Then("python 199=72 194[2:2]=1 96[0:0]=1")
            .Then("fpga 00=00 00=10 0A=01 01=01 0C=80 0D=80 0E=80 0F=80 01=00");
    }
    Expected &NormalProgram()
    {
        return Program("192[2:2]=0 192[3:3]=0 204[0:4]=3 65[4:7]=8 425=8310 427=113");
    }
    Expected &ZeroOverheadProgram()
    {
        return Program("192[2:2]=1 192[3:3]=1 204[0:4]=1 65[4:7]=2 425=8316 427=116");
    }

    Lines Take() { return std::exchange(m_lines, {}); }

  private:
    Expected &Program(const std::string &words)
    {
        return Then("python 192[0:0]=0 192[1:1]=0 194[0:0]=0 194[1:1]=0 " + words);
    }
    void AddSensorWrite(const std::string &text)
    {
        std::istringstream write(text);
        unsigned address = 0, low = 0, high = 0, value = 0;
        char sign = 0;
        write >> address >> sign;
        const bool bits = sign == '[';
        if (bits)
            write >> low >> sign >> high >> sign >> sign;
        write >> value;
        ASSERT_TRUE(write.eof() && sign == '=') << text;
        if (bits) {
            Add("sensor %04X?", address);
            const unsigned mask = ((2U << (high - low)) - 1) << low;
            value = (m_sensor[address] & ~mask) | value << low;
        }
        m_sensor[address] = value;
        Add("sensor %04X=%04X", address, value);
    }
    template <class... Numbers> void Add(const char *format, Numbers... numbers)
    {
        std::array<char, 32> line{};
        (void)std::snprintf(line.data(), line.size(), format, numbers...);
        m_lines.emplace_back(line.data());
    }

    std::map<unsigned, unsigned> m_sensor;
    Lines m_lines;
};

// At full size, gain 50 of 100, 10 ms: lines of 10 us, or 9 at high speed, 498 of them or more.
const std::string kBrightness1 = "python 128[0:7]=1;";
const std::string kGain50 = "python 205=512;"; // four times
const std::string kExposureAt10us = "fpga 01=01 10=E9 11=03 12=00 01=00; python 201=10000;";
const std::string kExposureAt9us = "fpga 01=01 10=58 11=04 12=00 01=00; python 201=10000;";
const std::string kLine10us = "fpga 01=01 13=D0 14=02 01=00;";
const std::string kLine9us = "fpga 01=01 13=88 14=02 01=00;";
const std::string kStart = "python 192[0:0]=1; fpga 00=01;";
const std::string kStop = "python 192[0:0]=0; fpga 00=11;";

struct MonoCamera : OpenedCamera {
    explicit MonoCamera(vscsim::LinkSpeed link = vscsim::LinkSpeed::Super)
        : OpenedCamera(std::in_place_type<CCameraS048MM>, "VSC048MM", {.link = link})
    {
        EXPECT_TRUE((*this)->InitCamera());
    }
};

using PythonDriverTest = HostTest;

TEST_F(PythonDriverTest, InitialisesAndSwitchesBetweenTheProgramsWithoutAPowerCycle)
{
    MonoCamera camera;
    Expected wire;
    wire.PowerUp().Then(kBrightness1).Then(kStop).NormalProgram();
    wire.Then(kExposureAt10us + kGain50 + kLine10us + kExposureAt10us + kStart);
    EXPECT_EQ(camera.Traffic(), wire.Then(kGain50 + kExposureAt10us).Take());

    EXPECT_TRUE(camera->SetHighSpeedMode(true));
    wire.Then(kStop).ZeroOverheadProgram();
    wire.Then(kExposureAt10us + kGain50 + kLine9us + kExposureAt9us + kStart);
    EXPECT_EQ(camera.Traffic(), wire.Take());

    EXPECT_TRUE(camera->SetHighSpeedMode(false));
    wire.Then(kStop).NormalProgram();
    wire.Then(kExposureAt9us + kGain50 + kLine10us + kExposureAt10us + kStart);
    EXPECT_EQ(camera.Traffic(), wire.Take());
}

TEST_F(PythonDriverTest, HighSpeedIsOnlyStoredOnAUsb2Host)
{
    MonoCamera camera(vscsim::LinkSpeed::High);
    EXPECT_EQ(camera.Traffic(),
              Expected().PowerUp().Then(kBrightness1 + kGain50 + kExposureAt10us).Take());
    EXPECT_FALSE(camera->SetHighSpeedMode(true));
    EXPECT_TRUE(camera->settings.Now().highSpeed);
    EXPECT_TRUE(camera.Traffic().empty());
}

TEST_F(PythonDriverTest, StopsTheSequencerForANewStartWhileItRuns)
{
    MonoCamera camera;
    ASSERT_TRUE(camera->SetResolution(320, 240, 1, kByteImage));
    ASSERT_TRUE(camera->StartCapture(false));
    SleepFor(std::chrono::milliseconds(500));
    (void)camera.Traffic();
    EXPECT_TRUE(camera->SetStartPos(47, 7));
    Expected wire;
    (void)wire.PowerUp().Then(kStop).NormalProgram().Then(kStart).Take();
    EXPECT_EQ(camera.Traffic(),
              wire.Then("python 192[0:0]=0 256=11012 257=6 258=245 192[0:0]=1").Take());
}

TEST_F(PythonDriverTest, WritesEachControlAsTheSensorWantsIt)
{
    using Set = std::function<bool(CCameraBase &)>;
    const struct {
        const char *name;
        Set set;
        std::string wire;
    } cases[] = {
        {"gain -1", [](CCameraBase &c) { return c.SetGain(-1, false); }, "python 205=128"},
        {"gain 30", [](CCameraBase &c) { return c.SetGain(30, false); }, "python 205=307"},
        {"gain 101", [](CCameraBase &c) { return c.SetGain(101, false); }, "python 205=2048"},
        {"brightness -1", [](CCameraBase &c) { return c.SetBrightness(-1); }, "python 128[0:7]=0"},
        {"brightness 256", [](CCameraBase &c) { return c.SetBrightness(256); },
         "python 128[0:7]=240"},
        {"exposure 15", [](CCameraBase &c) { return c.SetExp(15, false); },
         "fpga 01=01 10=F2 11=01 12=00 01=00; python 201=16"},
        {"exposure 70 ms", [](CCameraBase &c) { return c.SetExp(70'000, false); },
         "fpga 01=01 10=01 11=19 12=00 01=00; python 201=64000"},
        {"exposure 10 ms", [](CCameraBase &c) { return c.SetExp(10'000, false); }, kExposureAt10us},
        // Columns 160 to 479 and rows 120 to 359.
        {"region", [](CCameraBase &c) { return c.SetResolution(320, 240, 1, kRaw16); },
         "python 256=15124 257=120 258=359; fpga 0A=11 01=01 08=F0 09=00 04=40 05=01 01=00;" +
             kLine10us + kExposureAt10us + kExposureAt10us},
        {"start", [](CCameraBase &c) { return c.SetStartPos(47, 7); },
         "python 256=11012 257=6 258=245"}, // column 32
        {"last start", [](CCameraBase &c) { return c.SetStartPos(9'999, 9'999); },
         "python 256=20264 257=240 258=479"},
    };
    MonoCamera camera;
    Expected wire;
    wire.PowerUp().Then(kBrightness1).Take();
    (void)camera.Traffic();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(c.set(*camera.operator->()));
        EXPECT_EQ(camera.Traffic(), wire.Then(c.wire).Take());
    }
}

} // namespace
} // namespace vsccam
