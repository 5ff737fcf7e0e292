#pragma once

#include "models/usb2/fx2_camera.h"

namespace vsccam {

class CCameraS052MC : public Fx2Camera {
  public:
    explicit CCameraS052MC(unsigned long);
};

} // namespace vsccam
