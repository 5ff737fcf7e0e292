#pragma once

#include "models/sony/sony_driver.h"

namespace vsccam {

class CCameraS450MC : public SonyDriver<CCameraBase> {
  public:
    explicit CCameraS450MC(unsigned long);
};

class CCameraS450MC_C : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS450MC_C(unsigned long);
};

class CCameraS460MC : public SonyDriver<CCameraBase> {
  public:
    explicit CCameraS460MC(unsigned long);
};

} // namespace vsccam
