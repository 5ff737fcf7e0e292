#include "progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace vsctool {
namespace {

constexpr int kCells = 40;
constexpr const char *kWipeLine = "\r\033[K";

} // namespace

std::string ProgressText(Microseconds elapsed, Microseconds total)
{
    if (elapsed >= total)
        return fmt::format("[{:#>{}}] reading out", "", kCells);
    const auto filled = static_cast<int>(kCells * elapsed.count() / total.count());
    return fmt::format("[{:#>{}}{:.>{}}] {:.1f} of {:.1f} s", "", filled, "", kCells - filled,
                       Seconds(elapsed), Seconds(total));
}

void ProgressBar::Show(Microseconds elapsed)
{
    if (!m_visible)
        return;
    m_drawn = true;
    fmt::print(stderr, "{}{}", kWipeLine, ProgressText(elapsed, m_total));
}

ProgressBar::~ProgressBar()
{
    if (m_drawn)
        std::fputs(kWipeLine, stderr);
}

} // namespace vsctool
