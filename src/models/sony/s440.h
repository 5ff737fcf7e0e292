#pragma once

#include "models/sony/sony_driver.h"

namespace vsccam {

class CCameraS440MC : public SonyDriver<CCameraBase> {
  public:
    explicit CCameraS440MC(unsigned long);
};

class CCameraS440MC_C : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS440MC_C(unsigned long);
};

} // namespace vsccam
