#include "camera/models.h"

#include "camera/binning_sensor.h"
#include "camera/python_sensor.h"
#include "camera/self_timed_sensor.h"
#include "camera/sony_sensor.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <variant>

namespace vscsim {

/// A sensor: its way of being programmed, and what distinguishes it from others of that way.
struct SensorFamily {
    PixelArray pixels;
    std::variant<BinningTraits, PythonTraits, SelfTimedTraits, SonyTraits> traits;
    PixelFacts pixel;
};

namespace {

// Sony sensors have a clock for each of the rates 0, 1 and 2. One without a clock for binning sends
// nothing when it is told to bin. Which rate selects which clock is known of the S470 only; the
// others are taken to be like it.
constexpr SonyTraits kSmallPixels = {.clockHz = {37.125e6, 18.5625e6, 9.28125e6},
                                     .binnedClockHz = 9.28125e6};
constexpr SonyTraits kLargeFormat = {.clockHz = {20.25e6, 20.25e6, 20.25e6}};

constexpr SensorFamily kS047 = {{640, 480}, SelfTimedTraits{}, {}};
constexpr SensorFamily kS048 = {{640, 480}, PythonTraits{}, {}};
constexpr SensorFamily kS052 = {{728, 512}, SelfTimedTraits{}, {}};
constexpr SensorFamily kS056 = {{752, 480}, SelfTimedTraits{}, {}};
constexpr SensorFamily kS065 = {{7380, 4928}, kLargeFormat, {.electronsPerStep = 1.0}};
constexpr SensorFamily kS083 = {{4944, 3284}, kLargeFormat, {.electronsPerStep = 2.82}};
constexpr SensorFamily kS2800 = {{4656, 3520}, BinningTraits{}, {.electronsPerStep = 4.96}};
constexpr SensorFamily kS340 = {
    {1280, 960}, SelfTimedTraits{.highByteFirst = true}, {.electronsPerStep = 3.712}};
constexpr SensorFamily kS350 = {
    {1280, 1024}, SelfTimedTraits{.highByteFirst = true, .blackOffsets = {12, 13, -11, -10}}, {}};
constexpr SensorFamily kS372 = {
    {1944, 1224}, SonyTraits{.clockHz = {4.4e6, 2.2e6, 1.1e6}}, {.electronsPerStep = 4.0}};
constexpr SensorFamily kS385 = {{6036, 4032}, kLargeFormat, {.electronsPerStep = 1.0}};
constexpr SensorFamily kS420 = {
    {1936, 1216}, SonyTraits{.clockHz = {13.92e6, 13.92e6, 37.125e6}}, {.electronsPerStep = 7.92}};
constexpr SensorFamily kS430 = {
    {3096, 2080}, SonyTraits{.clockHz = {27e6, 27e6, 6.75e6}}, {.electronsPerStep = 0.916}};
constexpr SensorFamily kS440 = {
    {1944, 1224}, SonyTraits{.clockHz = {18.56e6, 9.28e6, 4.64e6}}, {.electronsPerStep = 5.584}};
constexpr SensorFamily kS450 = {{1304, 976}, kSmallPixels, {.electronsPerStep = 4.688}};
constexpr SensorFamily kS470 = {{1936, 1096}, kSmallPixels, {.electronsPerStep = 3.584}};

enum class Cooling { Uncooled, Cooled };
using enum Cooling;
using enum ControllerKind;

constexpr ModelFacts Model(const char *name, uint16_t productId, const SensorFamily &family,
                           Mosaic mosaic, Cooling cooling = Uncooled,
                           ControllerKind controller = Fx3, const char *maker = "KYR")
{
    return {.maker = maker,
            .name = name,
            .productId = productId,
            .sensorWidth = family.pixels.width,
            .sensorHeight = family.pixels.height,
            .mosaic = mosaic,
            .cooled = cooling == Cooled,
            .controller = controller,
            .family = &family};
}

constexpr ModelFacts kModels[] = {
    Model("VSC047MC", 0x047A, kS047, Mosaic::BG, Uncooled, Fx2),
    Model("VSC048MC", 0x048A, kS048, Mosaic::RG),
    Model("VSC048MM", 0x048B, kS048, Mosaic::None),
    Model("VSC052MC", 0x052B, kS052, Mosaic::GR, Uncooled, Fx2),
    Model("VSC052MC-A", 0x052A, kS052, Mosaic::GR, Uncooled, Fx2),
    Model("VSC052MC-B", 0x052C, kS052, Mosaic::GR, Uncooled, Fx2),
    Model("VSC056MC", 0x056B, kS056, Mosaic::BG, Uncooled, Fx2),
    Model("VSC056MC-A", 0x056E, kS056, Mosaic::BG, Uncooled, Fx2, "HALDRON"),
    Model("VSC056MC-B", 0x056F, kS056, Mosaic::BG, Uncooled, Fx2, "HALDRON"),
    Model("VSC056MM", 0x056A, kS056, Mosaic::None, Uncooled, Fx2),
    Model("VSC056MM-A", 0x056C, kS056, Mosaic::None, Uncooled, Fx2, "HALDRON"),
    Model("VSC056MM-B", 0x056D, kS056, Mosaic::None, Uncooled, Fx2, "HALDRON"),
    Model("VSC065MC-Cool", 0x065A, kS065, Mosaic::RG, Cooled),
    Model("VSC083MC-Cool", 0x083A, kS083, Mosaic::RG, Cooled),
    Model("VSC2800MC", 0x2800, kS2800, Mosaic::GR),
    Model("VSC2800MC-Cool", 0x2801, kS2800, Mosaic::GR, Cooled),
    Model("VSC2800MM", 0x2802, kS2800, Mosaic::None),
    Model("VSC2800MM-Cool", 0x2803, kS2800, Mosaic::None, Cooled),
    Model("VSC340MC", 0x340B, kS340, Mosaic::GR, Uncooled, Fx2),
    Model("VSC340MC-S", 0x340E, kS340, Mosaic::GR),
    Model("VSC340MM", 0x340A, kS340, Mosaic::None, Uncooled, Fx2),
    Model("VSC340MM-S", 0x340D, kS340, Mosaic::None),
    Model("VSC350MM", 0x350A, kS350, Mosaic::None, Uncooled, Fx2),
    Model("VSC372MC", 0x372A, kS372, Mosaic::GB),
    Model("VSC372MC-A", 0x372C, kS372, Mosaic::GB),
    Model("VSC372MC-B", 0x372D, kS372, Mosaic::GB),
    Model("VSC385MC-Cool", 0x385A, kS385, Mosaic::RG, Cooled),
    Model("VSC420MC", 0x420A, kS420, Mosaic::RG),
    Model("VSC420MC-Cool", 0x420C, kS420, Mosaic::RG, Cooled),
    Model("VSC420MM", 0x420B, kS420, Mosaic::None),
    Model("VSC420MM-A", 0x420E, kS420, Mosaic::None),
    Model("VSC420MM-B", 0x420F, kS420, Mosaic::None),
    Model("VSC420MM-Cool", 0x420D, kS420, Mosaic::None, Cooled),
    Model("VSC430MC", 0x430A, kS430, Mosaic::RG),
    Model("VSC430MC-Cool", 0x430B, kS430, Mosaic::RG, Cooled),
    Model("VSC430MM", 0x430C, kS430, Mosaic::None),
    Model("VSC430MM-Cool", 0x430D, kS430, Mosaic::None, Cooled),
    Model("VSC440MC", 0x440A, kS440, Mosaic::RG),
    Model("VSC440MC-Cool", 0x440B, kS440, Mosaic::RG, Cooled),
    Model("VSC450MC", 0x450A, kS450, Mosaic::RG),
    Model("VSC450MC-Cool", 0x450B, kS450, Mosaic::RG, Cooled),
    Model("VSC460MC", 0x460A, kS450, Mosaic::RG),
    Model("VSC470MC", 0x470A, kS470, Mosaic::RG),
    Model("VSC470MC-Cool", 0x470C, kS470, Mosaic::RG, Cooled),
    Model("VSC470MM", 0x470B, kS470, Mosaic::None),
    Model("VSC470MM-Cool", 0x470D, kS470, Mosaic::None, Cooled),
};

bool SameIgnoringCase(std::string_view a, std::string_view b)
{
    return std::ranges::equal(
        a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

bool IsCalled(const ModelFacts &model, std::string_view name)
{
    return SameIgnoringCase(name, model.name) ||
           SameIgnoringCase(name, std::string(model.maker) + ' ' + model.name);
}

/// Makes the sensor that the traits describe.
struct SensorMaker {
    const ModelFacts &model;

    std::unique_ptr<Sensor> operator()(const SelfTimedTraits &traits) const
    {
        return std::make_unique<SelfTimedSensor>(model.family->pixels, traits);
    }
    std::unique_ptr<Sensor> operator()(const SonyTraits &traits) const
    {
        return std::make_unique<SonySensor>(model.family->pixels, traits);
    }
    std::unique_ptr<Sensor> operator()(const BinningTraits &traits) const
    {
        return std::make_unique<BinningSensor>(model.family->pixels, traits);
    }
    std::unique_ptr<Sensor> operator()(const PythonTraits &traits) const
    {
        return std::make_unique<PythonSensor>(model.family->pixels, traits);
    }
};

} // namespace

std::span<const ModelFacts> AllModels()
{
    return kModels;
}

const ModelFacts *FindModel(std::string_view name)
{
    const auto *const found = std::ranges::find_if(
        kModels, [name](const ModelFacts &model) { return IsCalled(model, name); });
    return found == std::end(kModels) ? nullptr : found;
}

uint16_t VendorId()
{
    return VSCSIM_VENDOR_ID;
}

std::unique_ptr<Sensor> MakeSensor(const ModelFacts &model)
{
    return std::visit(SensorMaker{model}, model.family->traits);
}

const PixelFacts &PixelFactsOf(const ModelFacts &model)
{
    return model.family->pixel;
}

} // namespace vscsim
