#pragma once

#include "models/sony/sony_driver.h"

namespace vsccam {

class CCameraS372MC : public SonyDriver<CCameraBase> {
  public:
    explicit CCameraS372MC(unsigned long);
};

} // namespace vsccam
