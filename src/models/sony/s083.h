#pragma once

#include "models/sony/sony_driver.h"

namespace vsccam {

class CCameraS083MC : public SonyDriver<CCameraCool> {
  public:
    explicit CCameraS083MC(unsigned long);
};

} // namespace vsccam
