#include "core/auto_white_balance.h"

#include "base/debug_print.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace vsccam {

namespace {

constexpr int kBlocks = 16; // in each direction
constexpr int kCells = 10;  // of 2 x 2 sites, in each direction of a block

// Differences to green that are left alone.
constexpr int kGreyEnough = 4;
constexpr int kGreyEnoughWhileSettling = 10;

constexpr int kSmallBalance = 5; // below it, rounding alone could keep it from rising

template <class T> using PerColour = std::array<T, 3>; // red, green, blue

/// Index of the colour of a site.
size_t ColourOf(int x, int y, Site red)
{
    const bool redColumn = (x & 1) == red.column;
    const bool redRow = (y & 1) == red.row;
    return redColumn == redRow ? (redRow ? 0 : 2) : 1;
}

struct Block {
    PerColour<int> mean{};
    PerColour<int> deviation{};
};

class BlockSurvey {
  public:
    BlockSurvey(const RawFrame &frame, BayerPhase phase) : m_frame(frame), m_red(RedSite(phase)) {}

    Block Look(int row, int column) const
    {
        PerColour<int> sum{};
        PerColour<int> count{};
        ForEachSite(row, column, [&](int x, int y) {
            const size_t colour = ColourOf(x, y, m_red);
            sum[colour] += m_frame.Sample(x, y);
            ++count[colour];
        });
        Block block;
        for (size_t c = 0; c < sum.size(); ++c)
            block.mean[c] = (m_frame.is16 ? sum[c] >> 8 : sum[c]) / (count[c] + 1);

        PerColour<int> distance{};
        ForEachSite(row, column, [&](int x, int y) {
            const size_t colour = ColourOf(x, y, m_red);
            distance[colour] += std::abs(m_frame.Brightness(x, y) - block.mean[colour]);
        });
        for (size_t c = 0; c < distance.size(); ++c)
            block.deviation[c] = 10 * distance[c] / (count[c] + 1);
        return block;
    }

  private:
    template <class Function> void ForEachSite(int row, int column, Function function) const
    {
        const auto [width, height] = m_frame.size;
        for (int i = 0; i < kCells; ++i) {
            const int y = CellPlace(row, i, height);
            for (int j = 0; j < kCells; ++j) {
                const int x = CellPlace(column, j, width);
                for (const auto &[dx, dy] : {std::pair{0, 0}, {1, 0}, {0, 1}, {1, 1}})
                    function(x + dx, y + dy);
            }
        }
    }

    /// In small frames the last cell of a block reaches into the next block. The last cell of all
    /// is moved back into the frame.
    static int CellPlace(int block, int cell, int extent)
    {
        const int blockExtent = extent / kBlocks;
        return std::min(block * blockExtent + cell * blockExtent / kCells, extent - 2);
    }

    const RawFrame &m_frame;
    Site m_red;
};

/// Mean of the blocks, weighed by their deviations.
float Level(const std::vector<Block> &blocks, size_t colour, int scale)
{
    int64_t weights = 0;
    float weighed = 0;
    const auto mean = [=](const Block &block) {
        return std::min(block.mean[colour] * scale, kBrightest);
    };
    for (const Block &block : blocks) {
        weights += block.deviation[colour];
        weighed += static_cast<float>(block.deviation[colour] * mean(block));
    }
    const float level = weights == 0 ? static_cast<float>(mean(blocks.front()))
                                     : weighed / static_cast<float>(weights + 1);
    if (level <= 0)
        OutputDbgPrint("err1\n");
    return level;
}

int NewGain(int green, int level, int now)
{
    const int gain = green * now / (level + 1);
    const bool stuck = now >= gain && green > level && now < kSmallBalance;
    return stuck ? gain + 1 : gain;
}

} // namespace

ColourLevels MosaicLevels(const RawFrame &frame, BayerPhase phase, int scale)
{
    if (frame.size.width < 2 || frame.size.height < 2)
        return {};
    const BlockSurvey survey(frame, phase);
    std::vector<Block> blocks;
    blocks.reserve(size_t{kBlocks} * kBlocks);
    for (int row = 0; row < kBlocks; ++row) {
        for (int column = 0; column < kBlocks; ++column)
            blocks.push_back(survey.Look(row, column));
    }
    return {Level(blocks, 0, scale), Level(blocks, 1, scale), Level(blocks, 2, scale)};
}

ColourLevels Balanced(const ColourLevels &levels, WhiteBalance balance)
{
    const auto apply = [](float level, int gain) {
        return std::min(level * static_cast<float>(gain) / kUnityGain, float{kBrightest});
    };
    return {apply(levels.red, balance.red), levels.green, apply(levels.blue, balance.blue)};
}

std::optional<WhiteBalance> DecideWhiteBalance(const ColourLevels &balanced, WhiteBalance now,
                                               bool exposureOrGainAuto)
{
    const int red = static_cast<int>(balanced.red);
    const int green = static_cast<int>(balanced.green);
    const int blue = static_cast<int>(balanced.blue);
    const int limit = exposureOrGainAuto ? kGreyEnoughWhileSettling : kGreyEnough;
    if (std::abs(green - red) <= limit && std::abs(green - blue) <= limit)
        return std::nullopt;
    return WhiteBalance{NewGain(green, red, now.red), NewGain(green, blue, now.blue)};
}

} // namespace vsccam
