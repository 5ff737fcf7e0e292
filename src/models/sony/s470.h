#pragma once

#include "models/sony/sony_driver.h"

namespace vsccam {

class CCameraS470MM : public SonyDriver<CCameraBase> {
  public:
    explicit CCameraS470MM(unsigned long);
};

class CCameraS470MC : public SonyDriver<CCameraBase> {
  public:
    explicit CCameraS470MC(unsigned long);
};

class CCameraS470MM_C : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS470MM_C(unsigned long);
};

class CCameraS470MC_C : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS470MC_C(unsigned long);
};

} // namespace vsccam
