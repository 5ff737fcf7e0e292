#include "api/product_table.h"

#include "models/hardware_bin/s2800.h"
#include "models/python/s048.h"
#include "models/sony/large_format.h"
#include "models/sony/s372.h"
#include "models/sony/s420.h"
#include "models/sony/s430.h"
#include "models/sony/s440.h"
#include "models/sony/s450.h"
#include "models/sony/s470.h"
#include "models/usb2/s047.h"
#include "models/usb2/s052.h"
#include "models/usb2/s056.h"
#include "models/usb2/s340.h"
#include "models/usb2/s350.h"

#include <algorithm>
#include <string_view>

namespace vsccam {

namespace {

template <class Camera> std::unique_ptr<CCameraBase> Create()
{
    return std::make_unique<Camera>(0UL);
}

// Variants ("-A", "-B" and those of other brands) share a class. Order is part of the interface.
constexpr Product kProducts[] = {
    {0x350A, "CCameraS350MM", "KYR VSC350MM", Create<CCameraS350MM>},
    {0x340A, "CCameraS340MM", "KYR VSC340MM", Create<CCameraS340MM>},
    {0x340B, "CCameraS340MC", "KYR VSC340MC", Create<CCameraS340MC>},
    {0x056B, "CCameraS056MC", "KYR VSC056MC", Create<CCameraS056MC>},
    {0x056A, "CCameraS056MM", "KYR VSC056MM", Create<CCameraS056MM>},
    {0x047A, "CCameraS047MC", "KYR VSC047MC", Create<CCameraS047MC>},
    {0x052B, "CCameraS052MC", "KYR VSC052MC", Create<CCameraS052MC>},
    {0x052A, "CCameraS052MC", "KYR VSC052MC-A", Create<CCameraS052MC>},
    {0x052C, "CCameraS052MC", "KYR VSC052MC-B", Create<CCameraS052MC>},
    {0x340D, "CCameraS340MM_S", "KYR VSC340MM-S", Create<CCameraS340MM_S>},
    {0x340E, "CCameraS340MC_S", "KYR VSC340MC-S", Create<CCameraS340MC_S>},
    {0x372A, "CCameraS372MC", "KYR VSC372MC", Create<CCameraS372MC>},
    {0x372C, "CCameraS372MC", "KYR VSC372MC-A", Create<CCameraS372MC>},
    {0x372D, "CCameraS372MC", "KYR VSC372MC-B", Create<CCameraS372MC>},
    {0x430A, "CCameraS430MC", "KYR VSC430MC", Create<CCameraS430MC>},
    {0x440A, "CCameraS440MC", "KYR VSC440MC", Create<CCameraS440MC>},
    {0x440B, "CCameraS440MC_C", "KYR VSC440MC-Cool", Create<CCameraS440MC_C>},
    {0x420A, "CCameraS420MC", "KYR VSC420MC", Create<CCameraS420MC>},
    {0x420B, "CCameraS420MM", "KYR VSC420MM", Create<CCameraS420MM>},
    {0x450A, "CCameraS450MC", "KYR VSC450MC", Create<CCameraS450MC>},
    {0x450B, "CCameraS450MC_C", "KYR VSC450MC-Cool", Create<CCameraS450MC_C>},
    {0x420C, "CCameraS420MC_C", "KYR VSC420MC-Cool", Create<CCameraS420MC_C>},
    {0x420D, "CCameraS420MM_C", "KYR VSC420MM-Cool", Create<CCameraS420MM_C>},
    {0x430B, "CCameraS430MC_C", "KYR VSC430MC-Cool", Create<CCameraS430MC_C>},
    {0x083A, "CCameraS083MC", "KYR VSC083MC-Cool", Create<CCameraS083MC>},
    {0x056C, "CCameraS056MM", "HALDRON VSC056MM-A", Create<CCameraS056MM>},
    {0x056D, "CCameraS056MM", "HALDRON VSC056MM-B", Create<CCameraS056MM>},
    {0x056E, "CCameraS056MC", "HALDRON VSC056MC-A", Create<CCameraS056MC>},
    {0x056F, "CCameraS056MC", "HALDRON VSC056MC-B", Create<CCameraS056MC>},
    {0x470C, "CCameraS470MC_C", "KYR VSC470MC-Cool", Create<CCameraS470MC_C>},
    {0x470D, "CCameraS470MM_C", "KYR VSC470MM-Cool", Create<CCameraS470MM_C>},
    {0x420E, "CCameraS420MM", "KYR VSC420MM-A", Create<CCameraS420MM>},
    {0x420F, "CCameraS420MM", "KYR VSC420MM-B", Create<CCameraS420MM>},
    {0x385A, "CCameraS385MC", "KYR VSC385MC-Cool", Create<CCameraS385MC>},
    {0x065A, "CCameraS065MC", "KYR VSC065MC-Cool", Create<CCameraS065MC>},
    {0x460A, "CCameraS460MC", "KYR VSC460MC", Create<CCameraS460MC>},
    {0x470A, "CCameraS470MC", "KYR VSC470MC", Create<CCameraS470MC>},
    {0x470B, "CCameraS470MM", "KYR VSC470MM", Create<CCameraS470MM>},
    {0x2800, "CCameraS2800MC", "KYR VSC2800MC", Create<CCameraS2800MC>},
    {0x2801, "CCameraS2800MC_C", "KYR VSC2800MC-Cool", Create<CCameraS2800MC_C>},
    {0x048A, "CCameraS048MC", "KYR VSC048MC", Create<CCameraS048MC>},
    {0x048B, "CCameraS048MM", "KYR VSC048MM", Create<CCameraS048MM>},
    {0x430C, "CCameraS430MM", "KYR VSC430MM", Create<CCameraS430MM>},
    {0x430D, "CCameraS430MM_C", "KYR VSC430MM-Cool", Create<CCameraS430MM_C>},
    {0x2802, "CCameraS2800MM", "KYR VSC2800MM", Create<CCameraS2800MM>},
    {0x2803, "CCameraS2800MM_C", "KYR VSC2800MM-Cool", Create<CCameraS2800MM_C>},
};
static_assert(std::size(kProducts) == 46);

} // namespace

std::span<const Product> Products()
{
    return kProducts;
}

const Product *FindProduct(uint32_t productId)
{
    const auto *found = std::ranges::find(kProducts, productId, &Product::productId);
    return found == std::end(kProducts) ? nullptr : found;
}

bool SameGroup(uint32_t productId, uint32_t other)
{
    const Product *a = FindProduct(productId);
    const Product *b = FindProduct(other);
    return a && b && std::string_view(a->className) == b->className;
}

} // namespace vsccam
