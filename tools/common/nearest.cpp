#include "nearest.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <numeric>
#include <string_view>

namespace vsctool {
namespace {

constexpr size_t kMostSlips = 2;
constexpr size_t kLettersPerSlip = 3; // or any short word would do

/// Letters to change, add, leave out or swap with the next one until one word is the other.
size_t Slips(std::string_view from, std::string_view to)
{
    // Between the first letters of each, as many as the indices tell.
    std::vector slips(from.size() + 1, std::vector<size_t>(to.size() + 1));
    std::iota(slips[0].begin(), slips[0].end(), size_t{0});
    for (size_t i = 1; i <= from.size(); ++i) {
        slips[i][0] = i;
        for (size_t j = 1; j <= to.size(); ++j) {
            const size_t change = from[i - 1] == to[j - 1] ? 0 : 1;
            slips[i][j] =
                std::min({slips[i - 1][j] + 1, slips[i][j - 1] + 1, slips[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
                slips[i][j] = std::min(slips[i][j], slips[i - 2][j - 2] + 1);
        }
    }
    return slips.back().back();
}

} // namespace

std::string Nearest(const std::string &word, const std::vector<std::string> &known)
{
    const auto slips = [&](const std::string &other) { return Slips(word, other); };
    const auto nearest = std::ranges::min_element(known, {}, slips);
    const bool isNear = nearest != known.end() &&
                        slips(*nearest) <= std::min(kMostSlips, word.size() / kLettersPerSlip);
    return isNear ? *nearest : "";
}

std::string Suggest(const std::string &word, const std::vector<std::string> &known)
{
    const std::string nearest = Nearest(word, known);
    return nearest.empty() ? fmt::format("there are {}", fmt::join(known, ", "))
                           : fmt::format("did you mean {}?", nearest);
}

} // namespace vsctool
