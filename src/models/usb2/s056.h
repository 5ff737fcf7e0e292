#pragma once

#include "models/usb2/fx2_camera.h"

namespace vsccam {

class CCameraS056MM : public Fx2Camera {
  public:
    explicit CCameraS056MM(unsigned long);
};

class CCameraS056MC : public Fx2Camera {
  public:
    explicit CCameraS056MC(unsigned long);
};

} // namespace vsccam
