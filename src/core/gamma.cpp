#include "core/gamma.h"

#include "base/debug_print.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

namespace vsccam {

float GammaExponent(int gamma)
{
    const auto g = static_cast<float>(gamma);
    return gamma <= kLinearGamma ? (200.0F - 2.0F * g) / 100.0F : (150.0F - g) / 100.0F;
}

void FillGammaTable(int gamma, GammaTable8 &table)
{
    const double exponent = GammaExponent(gamma);
    for (size_t i = 0; i < table.size(); ++i)
        table[i] = static_cast<uint8_t>(
            std::min(255.0, std::pow(static_cast<double>(i) / 255.0, exponent) * 255.0));
}

void FillGammaTable(int gamma, GammaTable16 &table)
{
    const double exponent = GammaExponent(gamma);
    for (size_t i = 0; i < table.size(); ++i) {
        // The product is taken in single precision: some entries differ by one from double.
        const float scaled =
            static_cast<float>(std::pow(static_cast<double>(i) / 65535.0, exponent)) * 65535.0F;
        table[i] = static_cast<uint16_t>(std::min(65535.0F, scaled));
    }
}

bool GammaCurve::Set(int gamma)
try {
    // Quirk, kept: the old gamma is tested, not the new one; hosts rely on it.
    Curve next{Gamma() > 100 ? 100 : gamma, nullptr};
    if (next.gamma != kLinearGamma) {
        auto tables = std::make_shared<GammaTables>();
        FillGammaTable(next.gamma, tables->of8Bits);
        FillGammaTable(next.gamma, tables->of16Bits);
        next.tables = std::move(tables);
    }
    m_curve.With([&next](Curve &curve) { std::swap(curve, next); });
    return true;
} catch (const std::bad_alloc &) {
    OutputDbgPrint("no memory for the gamma tables\n");
    return false;
}

} // namespace vsccam
