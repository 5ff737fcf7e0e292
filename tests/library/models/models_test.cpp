#include "api/session.h"
#include "catalogue/product_list.h"
#include "core/frame_geometry.h"
#include "library/host_fixture.h"
#include "library/picture.h"

#include <chrono>
#include <climits>
#include <ostream>
#include <regex>

namespace vsccam {
namespace {

/// Of a control: what a fresh camera has, and what hosts can set.
struct Range {
    int min, max, initial;
};

/// By read-out: 12 bits, high speed with 10 bits, binned by the sensor (0: it does not bin).
struct PerReadout {
    int normal, fast, binned;
};

/// What the FPGA of USB 3.0 cameras is told.
struct FpgaTiming {
    int usb2Budget, usb3Budget; // of one per cent, in 10 bytes per second
    PerReadout clockKHz;
    PerReadout shortestLine; // clocks; 0: not known
};

/// What a data sheet of the sensor would say.
struct Sensor {
    int width, height; // that hosts can use
    double pixelUm;
    int bayer;
    int largestBin;       // every factor up to it
    int largestSensorBin; // that the sensor does itself
    Range gain, brightness;
    int red, blue; // balance at the start, of colour models
    int converterBits;
    FpgaTiming timing{}; // of cameras that have an FPGA, where it is known
};

// clang-format off
constexpr Sensor k450 = {1304, 976, 3.75, 0, 2, 2, {0, 600, 200}, {0, 240, 1}, 52, 95, 12,
                         {43'272, 190'906, {18'562, 37'124, 9'281}, {292, 249, 145}}};
constexpr Sensor k460 = {1304, 976, 3.75, 0, 2, 2, {0, 600, 200}, {0, 240, 1}, 52, 95, 12,
                         {43'272, 190'906, {18'562, 37'124, 9'281}, {0, 0, 145}}};
constexpr Sensor k470 = {1936, 1096, 2.9, 0, 2, 2, {0, 600, 200}, {0, 240, 1}, 52, 95, 12,
                         {43'272, 360'715, {18'562, 37'124, 9'281}, {203, 196, 145}}};
constexpr Sensor k420 = {1936, 1216, 5.86, 0, 2, 1, {0, 400, 200}, {0, 240, 1}, 60, 99, 12,
                         {43'272, 390'000, {13'920, 13'920, 0}, {}}};
constexpr Sensor k440 = {1944, 1224, 3.75, 0, 2, 1, {0, 480, 200}, {0, 500, 1}, 50, 90, 12,
                         {42'830, 256'981, {9'280, 18'560, 0}, {}}};
constexpr Sensor k372 = {1944, 1224, 2.8, 3, 2, 1, {0, 480, 200}, {0, 240, 1}, 52, 95, 12,
                         {42'830, 256'981, {2'200, 4'400, 0}, {}}};
constexpr Sensor k430 = {3096, 2080, 2.4, 0, 4, 1, {0, 510, 210}, {0, 600, 10}, 70, 90, 14,
                         {43'000, 385'000, {27'000, 27'000, 0}, {}}};
constexpr Sensor k083 = {4944, 3284, 4.78, 0, 4, 1, {0, 600, 200}, {0, 1024, 5}, 60, 99, 14,
                         {43'272, 325'643, {20'250, 20'250, 0}, {}}};
constexpr Sensor k065 = {7376, 4928, 5.97, 0, 4, 1, {0, 600, 200}, {0, 1024, 5}, 60, 99, 14,
                         {43'272, 333'333, {20'250, 20'250, 0}, {}}};
constexpr Sensor k385 = {6032, 4032, 5.97, 0, 4, 1, {0, 600, 200}, {0, 1024, 5}, 60, 99, 14,
                         {43'272, 333'333, {20'250, 20'250, 0}, {}}};
constexpr Sensor k048MC = {640, 480, 3.75, 0, 1, 1, {0, 600, 200}, {0, 240, 1}, 52, 95, 12, {}};
constexpr Sensor k048MM = {640, 480, 4.8, 0, 1, 1, {0, 100, 50}, {0, 240, 1}, 52, 95, 12, {}};
constexpr Sensor k340 = {1280, 960, 3.75, 2, 2, 1, {0, 100, 50}, {0, 20, 0}, 52, 95, 12, {}};
constexpr Sensor k350 = {1280, 1024, 5.2, 0, 2, 1, {0, 100, 50}, {}, 52, 95, 12, {}};
constexpr Sensor k056 = {752, 480, 6.0, 1, 1, 1, {1, 100, 50}, {}, 45, 70, 12, {}};
constexpr Sensor k047 = {640, 480, 6.0, 1, 1, 1, {1, 100, 50}, {}, 45, 70, 12, {}};
constexpr Sensor k052 = {728, 512, 5.6, 2, 2, 1, {0, 100, 50}, {0, 20, 0}, 41, 94, 12, {}};
constexpr Sensor k2800 = {4656, 3520, 3.8, 2, 4, 4, {0, 600, 200}, {0, 240, 1}, 52, 95, 12,
                          {43'272, 390'906, {37'125, 37'125, 37'125}, {680, 435, 397}}};
// clang-format on

constexpr Range kThreeSteps = {0, 2, 1}; // of bandwidth
constexpr Range kLong = {32, 2'000'000'000, 10'000};
constexpr Range kUsb3Bandwidth = {40, 100, 40};

/// And of the camera around it.
struct Sheet {
    const char *model;
    const Sensor &sensor;
    Range exposureUs = kLong;
    bool usb3 = true;
    Range bandwidth = kUsb3Bandwidth; // per cent

    bool Colour() const { return std::string_view(model).find("MC") != std::string_view::npos; }
    bool Cooled() const { return std::string_view(model).ends_with("-Cool"); }
    bool HasKnownTiming() const { return sensor.timing.clockKHz.normal != 0; }
    bool SensorBins() const { return sensor.largestSensorBin > 1; }
};

// clang-format off
constexpr Sheet kSheets[] = {
    {"VSC2800MC", k2800}, {"VSC2800MC-Cool", k2800}, {"VSC2800MM", k2800},
    {"VSC2800MM-Cool", k2800}, {"VSC450MC", k450}, {"VSC450MC-Cool", k450}, {"VSC460MC", k460},
    {"VSC470MC", k470}, {"VSC470MM", k470}, {"VSC470MC-Cool", k470}, {"VSC470MM-Cool", k470},
    {"VSC420MC-Cool", k420}, {"VSC420MM-Cool", k420}, {"VSC440MC", k440}, {"VSC440MC-Cool", k440},
    {"VSC430MC", k430}, {"VSC430MM", k430}, {"VSC430MC-Cool", k430}, {"VSC430MM-Cool", k430},
    {"VSC083MC-Cool", k083}, {"VSC065MC-Cool", k065}, {"VSC385MC-Cool", k385},
    {"VSC048MC", k048MC, {16, 64'000, 10'000}},
    {"VSC048MM", k048MM, {16, 64'000, 10'000}},
    {"VSC420MC", k420, {32, 300'000'000, 10'000}},
    {"VSC420MM", k420, {32, 300'000'000, 10'000}},
    {"VSC372MC", k372, {32, 4'000'000, 10'000}},
    {"VSC340MM-S", k340, {64, 2'000'000'000, 14'000}},
    {"VSC340MC-S", k340, {64, 2'000'000'000, 14'000}},
    {"VSC340MM", k340, {64, 2'000'000'000, 33'000}, false},
    {"VSC340MC", k340, {64, 2'000'000'000, 33'000}, false},
    {"VSC350MM", k350, {32, 999'000'000, 33'000}, false, kThreeSteps},
    {"VSC056MM", k056, {32, 999'000'000, 33'000}, false, kThreeSteps},
    {"VSC056MC", k056, {32, 999'000'000, 33'000}, false, kThreeSteps},
    {"VSC047MC", k047, {32, 30'000'000, 33'000}, false, kThreeSteps},
    {"VSC052MC", k052, {64, 64'000'000, 33'000}, false, {40, 100, 50}},
};
// clang-format on

const std::regex kNotKnown("not verified on hardware: all; stand-ins: ([^\n]{1,76})\n");

/// One way to read the sensor out.
struct Readout {
    int bin;
    bool sensorBins, fast, is16;

    /// A sensor that bins 4 x 4 would do 2 x 2 of it.
    int SensorBin() const { return sensorBins ? (bin == 4 ? 2 : bin) : 1; }
    int Of(const PerReadout &figures) const
    {
        if (sensorBins)
            return figures.binned;
        return fast && !is16 ? figures.fast : figures.normal;
    }
    friend std::ostream &operator<<(std::ostream &out, const Readout &readout)
    {
        return out << "bin " << readout.bin << (readout.sensorBins ? " by the sensor" : "")
                   << (readout.fast ? " high speed" : "") << (readout.is16 ? " 16 bits" : "");
    }
};

std::vector<Readout> ReadoutsOf(const Sheet &sheet)
{
    std::vector<Readout> readouts;
    for (int bin = 1; bin <= sheet.sensor.largestBin; ++bin) {
        for (const bool sensorBins : {false, true}) {
            if (sensorBins && (bin == 1 || bin > sheet.sensor.largestSensorBin))
                continue;
            for (const bool fast : {false, true}) {
                for (const bool is16 : {false, true})
                    readouts.push_back({bin, sensorBins, fast, is16});
            }
        }
    }
    return readouts;
}

class ModelsTest : public HostTest {
  protected:
    static int SonyNumber(int device, uint16_t address)
    {
        return Bus().With(device, [=](auto &camera) {
            return camera.SonyRegister(address) |
                   camera.SonyRegister(static_cast<uint16_t>(address + 1)) << 8;
        });
    }
    static int FpgaNumber(int device, uint8_t first, int registers)
    {
        return Bus().With(device, [=](auto &camera) {
            int number = 0;
            for (int i = registers - 1; i >= 0; --i)
                number = number << 8 | camera.FpgaRegister(static_cast<uint8_t>(first + i));
            return number;
        });
    }
    static int Value(Control_TYPE control) { return getValue(control, nullptr); }
    static int Clamped(Control_TYPE control, int value)
    {
        setValue(control, value, false);
        return Value(control);
    }
    static void ExpectRange(Control_TYPE control, const Range &range)
    {
        SCOPED_TRACE(testing::Message() << "control " << control);
        EXPECT_EQ(Value(control), range.initial);
        EXPECT_EQ(getMax(control), range.max);
        EXPECT_EQ(Clamped(control, INT_MAX), range.max);
        EXPECT_EQ(Clamped(control, range.min - 1), range.min);
    }
    static bool Set(const Readout &readout, int width, int height)
    {
        setValue(CONTROL_HIGH_SPEED, readout.fast, false);
        setValue(CONTROL_HARDWARE_BIN, readout.sensorBins, false);
        return setImageFormat(width, height, readout.bin,
                              readout.is16 ? VSC_IMG_RAW16 : VSC_IMG_RAW8);
    }
    static int LineClocks(int device) { return FpgaNumber(device, 19, 2); }
    /// As programmed, with lines of the length given.
    static double FramesPerSecond(int device, int clockKHz, int lineClocks)
    {
        return clockKHz * 1000.0 / lineClocks / FpgaNumber(device, 16, 3);
    }
    static double FrameBytes(int device, const Readout &readout)
    {
        return (readout.is16 ? 2.0 : 1.0) * FpgaNumber(device, 4, 2) * FpgaNumber(device, 8, 2);
    }
};

TEST_F(ModelsTest, EachModelIsWhatItsDataSheetSays)
{
    EXPECT_EQ(static_cast<std::ptrdiff_t>(std::size(kSheets)),
              std::ranges::count_if(Products(), [](const Product &p) { return !p.IsVariant(); }));
    for (const Sheet &sheet : kSheets) {
        SCOPED_TRACE(sheet.model);
        const int device = Bus().Plug(sheet.model);
        ASSERT_EQ(getNumberOfConnectedCameras(), 1);
        EXPECT_EQ(getCameraModel(0), std::string("KYR ") + sheet.model);
        ASSERT_TRUE(openCamera(0));
        EXPECT_EQ(Value(CONTROL_BANDWIDTH), sheet.bandwidth.initial);
        const std::string printed = Printed([] { EXPECT_TRUE(initCamera()); });
        std::smatch told; // in one line, which programs read and the printer must not cut
        ASSERT_TRUE(std::regex_search(printed, told, kNotKnown)) << printed;
        EXPECT_FALSE(std::regex_search(told.suffix().str(), kNotKnown));
        EXPECT_EQ(told[1] == "none", &sheet.sensor == &k470);
        EXPECT_NE(told[1], "everything"); // its data does not say

        EXPECT_EQ(getMaxWidth(), sheet.sensor.width);
        EXPECT_EQ(getMaxHeight(), sheet.sensor.height);
        EXPECT_EQ(getWidth(), sheet.sensor.width);
        EXPECT_EQ(getHeight(), sheet.sensor.height);
        EXPECT_DOUBLE_EQ(getPixelSize(), sheet.sensor.pixelUm);
        EXPECT_EQ(isColorCam(), sheet.Colour());
        EXPECT_EQ(getColorBayer(), sheet.Colour() ? sheet.sensor.bayer : 0);
        EXPECT_EQ(isUSB3Camera(), sheet.usb3);
        EXPECT_EQ(getImgType(), VSC_IMG_RAW8);
        EXPECT_FALSE(isImgTypeSupported(-1) || isImgTypeSupported(4));
        EXPECT_EQ(isCoolerCam(), sheet.Cooled());
        for (int bin = -1; bin <= 5; ++bin)
            EXPECT_EQ(isBinSupported(bin), bin >= 1 && bin <= sheet.sensor.largestBin) << bin;
        if (&sheet.sensor == &k470) {
            EXPECT_FLOAT_EQ(getElectronsPerADU(), 3.584F);
            int figures[4] = {};
            getGainOffset(&figures[0], &figures[1], &figures[2], &figures[3]);
            EXPECT_EQ(std::vector(figures, figures + 4), (std::vector{10, 18, 300, 75}));
        }

        ExpectRange(CONTROL_GAIN, sheet.sensor.gain);
        ExpectRange(CONTROL_EXPOSURE, sheet.exposureUs);
        EXPECT_EQ(Value(CONTROL_BRIGHTNESS), sheet.sensor.brightness.initial);
        EXPECT_EQ(getMax(CONTROL_BRIGHTNESS), sheet.sensor.brightness.max);
        if (sheet.Colour()) {
            ExpectRange(CONTROL_WB_RED, {1, 99, sheet.sensor.red});
            ExpectRange(CONTROL_WB_BLUE, {1, 99, sheet.sensor.blue});
        }
        EXPECT_EQ(CurrentCamera()->model.adcBits, sheet.sensor.converterBits);
        Range bandwidth = sheet.bandwidth;
        if (sheet.usb3) // on a USB 3.0 host, as here
            bandwidth.initial = bandwidth.max;
        ExpectRange(CONTROL_BANDWIDTH, bandwidth);
        EXPECT_EQ(isAvailable(CONTROL_WB_RED), sheet.Colour());
        EXPECT_EQ(isAvailable(CONTROL_COOLER_ON), sheet.Cooled());
        EXPECT_EQ(isAvailable(CONTROL_HARDWARE_BIN), sheet.SensorBins());
        EXPECT_EQ(Clamped(CONTROL_HARDWARE_BIN, 1), sheet.SensorBins());
        EXPECT_TRUE(isAvailable(CONTROL_HIGH_SPEED) && isAvailable(CONTROL_TEMPERATURE));
        Remove(device);
    }
}

TEST_F(ModelsTest, VariantsAreCountedAndNamedButOnlyThePrimaryProductIdOpens)
{
    for (const std::string primary : {"VSC372MC", "VSC420MM", "VSC052MC", "VSC056MM", "VSC056MC"}) {
        SCOPED_TRACE(primary);
        std::vector<int> devices;
        for (const char *edition : {"-A", "-B"}) {
            const vscsim::ModelFacts &variant = *vscsim::FindModel(primary + edition);
            const int index = static_cast<int>(devices.size());
            devices.push_back(Bus().PlugForeign(vscsim::VendorId(), variant.productId));
            ASSERT_EQ(getNumberOfConnectedCameras(), index + 1);
            EXPECT_EQ(getCameraModel(index), std::string(variant.maker) + ' ' + variant.name);
            EXPECT_FALSE(openCamera(index));
        }
        closeCamera();

        // Variants count in the ordinal of the camera to open, but cameras of the primary product
        // ID only are found by it.
        devices.push_back(Bus().Plug(primary));
        ASSERT_EQ(getNumberOfConnectedCameras(), 3);
        EXPECT_FALSE(openCamera(2)); // asks for the third
        EXPECT_TRUE(openCamera(0));  // asks for the first
        closeCamera();
        for (const int device : devices)
            Bus().Unplug(device);
    }
}

TEST_F(ModelsTest, EachModelDeliversThePatternInEveryFormatAndBinning)
{
    for (const Sheet &sheet : kSheets) {
        const int device = OpenOne(sheet.model);
        setValue(CONTROL_WB_RED, 50, false);
        setValue(CONTROL_WB_BLUE, 50, false);
        for (const Readout &readout : ReadoutsOf(sheet)) {
            setValue(CONTROL_HARDWARE_BIN, readout.sensorBins, false);
            for (const int type : {VSC_IMG_RAW8, VSC_IMG_RGB24, VSC_IMG_RAW16, VSC_IMG_Y8}) {
                if (readout.fast || readout.is16 != (type == VSC_IMG_RAW16))
                    continue;
                SCOPED_TRACE(testing::Message() << sheet.model << " " << readout << " " << type);
                const Picture picture{.model = sheet.model,
                                      .width = 160,
                                      .height = 128,
                                      .bin = readout.bin,
                                      .type = type,
                                      .startX = 16,
                                      .startY = 10,
                                      .bayer = sheet.sensor.bayer,
                                      .sensorBin = readout.SensorBin(),
                                      .marks = sheet.usb3 ? kBothEnds : kHeadOnly};
                ASSERT_TRUE(isImgTypeSupported(type));
                ASSERT_TRUE(setImageFormat(picture.width, picture.height, picture.bin, type));
                setStartPos(picture.startX, picture.startY);
                startCapture();
                EXPECT_TRUE(picture.IsOneOfTheFirst(NextFrame(5000)));
                stopCapture();
            }
        }
        Remove(device);
    }
}

TEST_F(ModelsTest, EachModelUsesAllOfItsSensor)
{
    for (const Sheet &sheet : kSheets) {
        SCOPED_TRACE(sheet.model);
        const int device = OpenOne(sheet.model);
        const int lastX = vscsim::FindModel(sheet.model)->sensorWidth - 64;
        ASSERT_TRUE(setImageFormat(64, 16, 1, VSC_IMG_RAW8));
        setStartPos(INT_MAX, INT_MAX);
        EXPECT_EQ(getStartX(), lastX);
        EXPECT_EQ(getStartY(), sheet.sensor.height - 16);
        startCapture();
        const Bytes frame = NextFrame(5000);
        EXPECT_TRUE(!frame.empty() && PatternNumber(frame, 64, lastX, sheet.sensor.height - 16,
                                                    sheet.usb3 ? kBothEnds : kHeadOnly));
        stopCapture();
        EXPECT_FALSE(setImageFormat(sheet.sensor.width + 8, 2, 1, VSC_IMG_RAW8));
        EXPECT_FALSE(setImageFormat(8, sheet.sensor.height + 2, 1, VSC_IMG_RAW8));
        Remove(device);
    }
}

TEST_F(ModelsTest, LargeSensorsStartAtMultiplesOfSixWhenBinnedByThree)
{
    for (const auto &[model, step] : {std::pair{"VSC430MM", 4},
                                      {"VSC083MC-Cool", 6},
                                      {"VSC065MC-Cool", 6},
                                      {"VSC385MC-Cool", 6}}) {
        SCOPED_TRACE(model);
        const int device = OpenOne(model);
        ASSERT_TRUE(setImageFormat(160, 120, 3, VSC_IMG_RAW8));
        setStartPos(7, 1); // unbinned 21, 3
        EXPECT_EQ(SonyNumber(device, 0x3040), 21 / step * step);
        EXPECT_EQ(SonyNumber(device, 0x303C), 2);
        EXPECT_EQ(getSensorTemp() > 20.08, step == 6); // on the board, in steps of 0.6 degrees
        Remove(device);
    }
}

TEST_F(ModelsTest, NoModelSendsMoreThanItsShareOfTheBandwidth)
{
    for (const Sheet &sheet : kSheets) {
        if (!sheet.HasKnownTiming())
            continue;
        const Sensor &sensor = sheet.sensor;
        for (const auto link : {vscsim::LinkSpeed::Super, vscsim::LinkSpeed::High}) {
            const bool usb2 = link == vscsim::LinkSpeed::High;
            const int device = OpenOne(sheet.model, {.link = link});
            EXPECT_EQ(isUSB3Host(), !usb2);
            setValue(CONTROL_EXPOSURE, 32, false);
            for (const Readout &readout : ReadoutsOf(sheet)) {
                const Size full{sensor.width / readout.bin & ~7, sensor.height / readout.bin & ~1};
                for (const Size size : {full, Size{160, full.height}, Size{full.width, 120}}) {
                    for (const int percent : {40, 73, 100}) {
                        SCOPED_TRACE(testing::Message()
                                     << sheet.model << (usb2 ? " USB 2 " : " USB 3 ") << size.width
                                     << " x " << size.height << " " << readout << " " << percent
                                     << " %");
                        setValue(CONTROL_BANDWIDTH, percent, false);
                        ASSERT_TRUE(Set(readout, size.width, size.height));
                        const int line = LineClocks(device);
                        EXPECT_GE(line, readout.Of(sensor.timing.shortestLine));

                        const double share =
                            10.0 * percent *
                            (usb2 ? sensor.timing.usb2Budget : sensor.timing.usb3Budget);
                        const double bytes = FrameBytes(device, readout);
                        const int clock = readout.Of(sensor.timing.clockKHz);
                        // Line lengths are whole clocks, rounded down.
                        EXPECT_LE(bytes * FramesPerSecond(device, clock, line + 1), share);
                        if (usb2 && size == full && !readout.sensorBins) { // needs no shortest line
                            EXPECT_GE(bytes * FramesPerSecond(device, clock, line), share * 0.9999);
                        }
                    }
                }
            }
            Remove(device);
        }
    }
}

TEST_F(ModelsTest, FramesComeAtTheRateThatClockAndLineLengthGive)
{
    for (const Sheet &sheet : kSheets) {
        if (!sheet.HasKnownTiming())
            continue;
        const int device = OpenOne(sheet.model);
        setValue(CONTROL_EXPOSURE, 32, false);
        for (const Readout &readout : ReadoutsOf(sheet)) {
            SCOPED_TRACE(testing::Message() << sheet.model << " " << readout);
            ASSERT_TRUE(Set(readout, 8, 480 / readout.bin)); // cheap, and not too many
            startCapture();
            ASSERT_FALSE(NextFrame(5000).empty());
            const uint64_t before = FramesProduced(device);
            SleepFor(std::chrono::milliseconds(500));
            const double perSecond = 2.0 * static_cast<double>(FramesProduced(device) - before);
            stopCapture();
            const double expected = FramesPerSecond(
                device, readout.Of(sheet.sensor.timing.clockKHz), LineClocks(device));
            EXPECT_NEAR(perSecond, expected, 4.0 + 0.02 * expected);
        }
        Remove(device);
    }
}

} // namespace
} // namespace vsccam
