#pragma once

#include "models/sony/sony_driver.h"

namespace vsccam {

class CCameraS430MM : public SonyDriver<CCameraBase> {
  public:
    explicit CCameraS430MM(unsigned long);
};

class CCameraS430MC : public SonyDriver<CCameraBase> {
  public:
    explicit CCameraS430MC(unsigned long);
};

class CCameraS430MM_C : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS430MM_C(unsigned long);
};

class CCameraS430MC_C : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS430MC_C(unsigned long);
};

} // namespace vsccam
