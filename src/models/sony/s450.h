#pragma once

#include "models/sony/sony_driver.h"

namespace vsccam {

extern const SonySensor kS450Sensor; // the S460 is read out in the same way

class CCameraS450MC : public SonyDriver<CCameraBase> {
  public:
    explicit CCameraS450MC(unsigned long);
};

class CCameraS450MC_C : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS450MC_C(unsigned long);
};

} // namespace vsccam
