#pragma once

#include "models/hardware_bin/hardware_bin_driver.h"

namespace vsccam {

class CCameraS2800MM : public HardwareBinDriver<CCameraBase> {
  public:
    explicit CCameraS2800MM(unsigned long);
};

class CCameraS2800MC : public HardwareBinDriver<CCameraBase> {
  public:
    explicit CCameraS2800MC(unsigned long);
};

class CCameraS2800MM_C : public HardwareBinDriver<CCameraCool> {
  public:
    explicit CCameraS2800MM_C(unsigned long);
};

class CCameraS2800MC_C : public HardwareBinDriver<CCameraCool> {
  public:
    explicit CCameraS2800MC_C(unsigned long);
};

} // namespace vsccam
