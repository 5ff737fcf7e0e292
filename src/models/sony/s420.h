#pragma once

#include "models/sony/sony_driver.h"

namespace vsccam {

class CCameraS420MM : public SonyDriver<CCameraBase> {
  public:
    explicit CCameraS420MM(unsigned long);
};

class CCameraS420MC : public SonyDriver<CCameraBase> {
  public:
    explicit CCameraS420MC(unsigned long);
};

class CCameraS420MM_C : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS420MM_C(unsigned long);
};

class CCameraS420MC_C : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS420MC_C(unsigned long);
};

} // namespace vsccam
