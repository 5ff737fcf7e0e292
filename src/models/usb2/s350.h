#pragma once

#include "models/usb2/fx2_camera.h"

namespace vsccam {

class CCameraS350MM : public Fx2Camera {
  public:
    explicit CCameraS350MM(unsigned long);
};

} // namespace vsccam
