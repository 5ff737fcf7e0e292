#pragma once

#include "models/sony/sony_driver.h"

namespace vsccam {

class CCameraS460MC : public SonyDriver<CCameraBase> {
  public:
    explicit CCameraS460MC(unsigned long);
};

} // namespace vsccam
