#include "camera/models.h"

#include "camera/sony_sensor.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace vscsim {
namespace {

constexpr std::string_view kMaker = "KYR ";

constexpr ModelFacts kModels[] = {
    {"VSC065MC-Cool", 0x065A, 7380, 4928, true, true},
    {"VSC083MC-Cool", 0x083A, 4944, 3284, true, true},
    {"VSC372MC", 0x372A, 1944, 1224, true, false},
    {"VSC385MC-Cool", 0x385A, 6036, 4032, true, true},
    {"VSC420MC", 0x420A, 1936, 1216, true, false},
    {"VSC420MC-Cool", 0x420C, 1936, 1216, true, true},
    {"VSC420MM", 0x420B, 1936, 1216, false, false},
    {"VSC420MM-Cool", 0x420D, 1936, 1216, false, true},
    {"VSC430MC", 0x430A, 3096, 2080, true, false},
    {"VSC430MC-Cool", 0x430B, 3096, 2080, true, true},
    {"VSC430MM", 0x430C, 3096, 2080, false, false},
    {"VSC430MM-Cool", 0x430D, 3096, 2080, false, true},
    {"VSC440MC", 0x440A, 1944, 1224, true, false},
    {"VSC440MC-Cool", 0x440B, 1944, 1224, true, true},
    {"VSC450MC", 0x450A, 1304, 976, true, false},
    {"VSC450MC-Cool", 0x450B, 1304, 976, true, true},
    {"VSC460MC", 0x460A, 1304, 976, true, false},
    {"VSC470MC", 0x470A, 1936, 1096, true, false},
    {"VSC470MC-Cool", 0x470C, 1936, 1096, true, true},
    {"VSC470MM", 0x470B, 1936, 1096, false, false},
    {"VSC470MM-Cool", 0x470D, 1936, 1096, false, true},
};

/// What the models with one sensor share.
struct Family {
    std::array<uint16_t, 4> productIds;
    SonyTraits sensor;
    PixelFacts pixel;
};

// Clocks of the rates 0, 1, 2; a sensor without a clock for binning sends nothing when told to bin.
// Which rate selects which clock is known of the S470 only; the others are taken to be like it.
constexpr Family kFamilies[] = {
    {{0x470A, 0x470B, 0x470C, 0x470D},
     {.width = 1936,
      .height = 1096,
      .clockHz = {37.125e6, 18.5625e6, 9.28125e6},
      .binnedClockHz = 9.28125e6},
     {.electronsPerStep = 3.584}},
    {{0x450A, 0x450B, 0x460A},
     {.width = 1304,
      .height = 976,
      .clockHz = {37.125e6, 18.5625e6, 9.28125e6},
      .binnedClockHz = 9.28125e6},
     {.electronsPerStep = 4.688}},
    {{0x420A, 0x420B, 0x420C, 0x420D},
     {.width = 1936, .height = 1216, .clockHz = {13.92e6, 13.92e6, 37.125e6}},
     {.electronsPerStep = 7.92}},
    {{0x440A, 0x440B},
     {.width = 1944, .height = 1224, .clockHz = {18.56e6, 9.28e6, 4.64e6}},
     {.electronsPerStep = 5.584}},
    {{0x372A},
     {.width = 1944, .height = 1224, .clockHz = {4.4e6, 2.2e6, 1.1e6}},
     {.electronsPerStep = 4.0}},
    {{0x430A, 0x430B, 0x430C, 0x430D},
     {.width = 3096, .height = 2080, .clockHz = {27e6, 27e6, 6.75e6}},
     {.electronsPerStep = 0.916}},
    {{0x083A},
     {.width = 4944, .height = 3284, .clockHz = {20.25e6, 20.25e6, 20.25e6}},
     {.electronsPerStep = 2.82}},
    {{0x065A},
     {.width = 7380, .height = 4928, .clockHz = {20.25e6, 20.25e6, 20.25e6}},
     {.electronsPerStep = 1.0}},
    {{0x385A},
     {.width = 6036, .height = 4032, .clockHz = {20.25e6, 20.25e6, 20.25e6}},
     {.electronsPerStep = 1.0}},
};

const Family &FamilyOf(const ModelFacts &model)
{
    for (const Family &family : kFamilies)
        if (std::ranges::find(family.productIds, model.productId) != family.productIds.end())
            return family;
    return kFamilies[0];
}

bool SameIgnoringCase(std::string_view a, std::string_view b)
{
    return std::ranges::equal(
        a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

} // namespace

std::span<const ModelFacts> AllModels()
{
    return kModels;
}

const ModelFacts *FindModel(std::string_view name)
{
    if (SameIgnoringCase(name.substr(0, kMaker.size()), kMaker))
        name.remove_prefix(kMaker.size());
    const auto *const found = std::ranges::find_if(
        kModels, [name](const ModelFacts &model) { return SameIgnoringCase(model.name, name); });
    return found == std::end(kModels) ? nullptr : found;
}

uint16_t VendorId()
{
    return VSCSIM_VENDOR_ID;
}

std::unique_ptr<Sensor> MakeSensor(const ModelFacts &model)
{
    return std::make_unique<SonySensor>(FamilyOf(model).sensor);
}

const PixelFacts &PixelFactsOf(const ModelFacts &model)
{
    return FamilyOf(model).pixel;
}

} // namespace vscsim
