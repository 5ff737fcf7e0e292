#pragma once

#include "base/guarded.h"

#include <array>
#include <cstdint>
#include <memory>

namespace vsccam {

inline constexpr int kLinearGamma = 50;

/// Exponent of a gamma setting: 2 at 0, 1 at 50, 0.5 at 100.
float GammaExponent(int gamma);

/// Lookup tables for 8-bit and 16-bit samples.
using GammaTable8 = std::array<uint8_t, 256>;
using GammaTable16 = std::array<uint16_t, 65536>;
void FillGammaTable(int gamma, GammaTable8 &table);
void FillGammaTable(int gamma, GammaTable16 &table);

/// Both, of one setting.
struct GammaTables {
    GammaTable8 of8Bits;
    GammaTable16 of16Bits;
};

/// The gamma that is set, with its tables.
///
/// Threads. Any thread may call anything at any time. A gamma and its tables are exchanged together
/// under the lock, so that of two threads that set one the later has set both; they are computed
/// before, and nobody waits for that. Tables in use are never changed: whoever took them may go on.
class GammaCurve {
  public:
    /// Linear until one is set, whatever it is called.
    explicit GammaCurve(int initial) : m_curve({initial, nullptr}) {}

    /// False without memory for the tables; the gamma stays what it was then.
    bool Set(int gamma);
    int Gamma() const { return m_curve.Now().gamma; }
    /// Null when it is linear.
    std::shared_ptr<const GammaTables> Tables() const { return m_curve.Now().tables; }

  private:
    struct Curve {
        int gamma = kLinearGamma;
        std::shared_ptr<const GammaTables> tables;
    };

    Guarded<Curve> m_curve;
};

} // namespace vsccam
