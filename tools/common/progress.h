#pragma once

#include "units.h"

#include <cstdint>
#include <string>
#include <utility>

namespace vsctool {

/// A line on the terminal that changes in place. It is wiped at the end.
class LiveLine {
  public:
    explicit LiveLine(bool visible) : m_visible(visible) {}
    ~LiveLine();
    LiveLine(const LiveLine &) = delete;
    LiveLine &operator=(const LiveLine &) = delete;

    void Show(const std::string &text);

  private:
    bool m_visible;
    std::string m_shown;
};

/// A bar on the terminal while time passes.
class ProgressBar {
  public:
    /// @param label  stands before the bar
    ProgressBar(bool visible, Microseconds total, std::string label = "")
        : m_line(visible), m_label(std::move(label)), m_total(total)
    {
    }

    void Show(Microseconds elapsed);

  private:
    LiveLine m_line;
    std::string m_label;
    Microseconds m_total;
};

/// "[#####.....]"
std::string Bar(int64_t done, int64_t all);

/// "[#####.....]  2.5 of 5.0 s"
std::string ProgressText(Microseconds elapsed, Microseconds total);

} // namespace vsctool
