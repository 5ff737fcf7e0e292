#pragma once

#include "models/sony/sony_driver.h"

namespace vsccam {

class CCameraS065MC : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS065MC(unsigned long);
};

} // namespace vsccam
