#include "progress.h"

#include <fmt/format.h>

#include <cstdio>

namespace vsctool {
namespace {

constexpr int kCells = 40;
constexpr const char *kWipeLine = "\r\033[K";

} // namespace

std::string Bar(int64_t done, int64_t all)
{
    const auto filled = static_cast<int>(kCells * done / all);
    return fmt::format("[{:#>{}}{:.>{}}]", "", filled, "", kCells - filled);
}

std::string ProgressText(Microseconds elapsed, Microseconds total)
{
    if (elapsed >= total)
        return Bar(1, 1) + " reading out";
    return fmt::format("{} {:.1f} of {:.1f} s", Bar(elapsed.count(), total.count()),
                       Seconds(elapsed), Seconds(total));
}

void ProgressBar::Show(Microseconds elapsed)
{
    m_line.Show(m_label + ProgressText(elapsed, m_total));
}

void LiveLine::Show(const std::string &text)
{
    if (!m_visible || text == m_shown)
        return;
    std::fputs((kWipeLine + text).c_str(), stderr);
    m_shown = text;
}

LiveLine::~LiveLine()
{
    if (!m_shown.empty())
        std::fputs(kWipeLine, stderr);
}

} // namespace vsctool
