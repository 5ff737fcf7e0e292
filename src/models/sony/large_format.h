#pragma once

#include "models/sony/sony_driver.h"

namespace vsccam {

class CCameraS065MC : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS065MC(unsigned long);
};

class CCameraS083MC : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS083MC(unsigned long);
};

class CCameraS385MC : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS385MC(unsigned long);
};

} // namespace vsccam
