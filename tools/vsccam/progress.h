#pragma once

#include "units.h"

#include <string>
#include <utility>

namespace vsctool {

/// A bar on the terminal while time passes. The line is wiped at the end.
class ProgressBar {
  public:
    /// @param label  stands before the bar
    ProgressBar(bool visible, Microseconds total, std::string label = "")
        : m_visible(visible), m_label(std::move(label)), m_total(total)
    {
    }
    ~ProgressBar();
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

    void Show(Microseconds elapsed);

  private:
    bool m_visible;
    std::string m_label;
    std::string m_shown;
    Microseconds m_total;
};

/// "[#####.....]  2.5 of 5.0 s"
std::string ProgressText(Microseconds elapsed, Microseconds total);

} // namespace vsctool
