#include "nearest.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <numeric>
#include <string_view>

namespace vsctool {
namespace {

constexpr size_t kLargestSlip = 2; // of the finger, in letters

/// Letters to change, add or leave out until one word is the other.
size_t Distance(std::string_view from, std::string_view to)
{
    std::vector<size_t> row(to.size() + 1); // to the words that `to` begins with
    std::iota(row.begin(), row.end(), size_t{0});
    for (const char letter : from) {
        size_t before = row[0]++;
        for (size_t i = 0; i < to.size(); ++i) {
            const size_t changed = before + (letter == to[i] ? 0 : 1);
            before = row[i + 1];
            row[i + 1] = std::min({changed, row[i] + 1, before + 1});
        }
    }
    return row.back();
}

} // namespace

std::string Nearest(const std::string &word, const std::vector<std::string> &known)
{
    const auto distance = [&](const std::string &other) { return Distance(word, other); };
    const auto nearest = std::ranges::min_element(known, {}, distance);
    const bool isNear = nearest != known.end() && distance(*nearest) <= kLargestSlip &&
                        distance(*nearest) < nearest->size(); // or any short word would do
    return isNear ? *nearest : "";
}

std::string Suggest(const std::string &word, const std::vector<std::string> &known)
{
    const std::string nearest = Nearest(word, known);
    return nearest.empty() ? fmt::format("there are {}", fmt::join(known, ", "))
                           : fmt::format("did you mean {}?", nearest);
}

} // namespace vsctool
