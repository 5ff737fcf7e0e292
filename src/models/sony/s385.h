#pragma once

#include "models/sony/sony_driver.h"

namespace vsccam {

class CCameraS385MC : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS385MC(unsigned long);
};

} // namespace vsccam
