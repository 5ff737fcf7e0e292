#pragma once

#include "core/raw_frame.h"
#include "image/algorithm.h"

#include <optional>

/// Automatic white balance: how red and blue a frame is, and which balance makes it grey.
namespace vsccam {

/// Levels of the three colours, 0 to 255.
struct ColourLevels {
    float red = 0;
    float green = 0;
    float blue = 0;
};

/// Gains of red and blue as the controls have them, 50 is unity.
struct WhiteBalance {
    int red = 0;
    int blue = 0;

    bool operator==(const WhiteBalance &) const = default;
};

/// Means of the colours of a mosaic over 16 x 16 blocks. Blocks with detail weigh more, flat ones
/// (black, saturated) hardly count. `scale` multiplies the means of the blocks, up to 255.
ColourLevels MosaicLevels(const RawFrame &frame, BayerPhase phase, int scale);

/// What a balance makes of the levels.
ColourLevels Balanced(const ColourLevels &levels, WhiteBalance balance);

/// The balance that makes balanced levels grey; nothing while they are grey enough. The limit for
/// that is wider as long as exposure or gain may still be settling.
std::optional<WhiteBalance> DecideWhiteBalance(const ColourLevels &balanced, WhiteBalance now,
                                               bool exposureOrGainAuto);

} // namespace vsccam
