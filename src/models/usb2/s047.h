#pragma once

#include "models/usb2/fx2_camera.h"

namespace vsccam {

class CCameraS047MC : public Fx2Camera {
  public:
    explicit CCameraS047MC(unsigned long);
};

} // namespace vsccam
