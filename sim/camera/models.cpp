#include "camera/models.h"

#include "camera/sony_sensor.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace vscsim {
namespace {

constexpr std::string_view kMaker = "KYR ";

constexpr ModelFacts kModels[] = {
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

constexpr Family kFamilies[] = {
    {{0x470A, 0x470B, 0x470C, 0x470D},
     {.width = 1936,
      .height = 1096,
      .clockHz = {37.125e6, 18.5625e6, 9.28125e6},
      .binnedClockHz = 9.28125e6},
     {.electronsPerStep = 3.584,
      .readNoiseElectrons = 1.5,
      .darkElectronsPerSecond = 0.4,
      .darkDoublesEveryC = 6.0}},
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
