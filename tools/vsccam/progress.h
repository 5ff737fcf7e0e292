#pragma once

#include "units.h"

#include <string>

namespace vsctool {

/// A bar on the terminal while time passes. The line is wiped at the end.
class ProgressBar {
  public:
    ProgressBar(bool visible, Microseconds total) : m_visible(visible), m_total(total) {}
    ~ProgressBar();
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

    void Show(Microseconds elapsed);

  private:
    bool m_visible;
    std::string m_shown;
    Microseconds m_total;
};

/// "[#####.....]  2.5 of 5.0 s"
std::string ProgressText(Microseconds elapsed, Microseconds total);

} // namespace vsctool
