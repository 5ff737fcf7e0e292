#pragma once

#include "models/usb2/fx2_camera.h"
#include "models/usb2/fx3_edition.h"

namespace vsccam {

class CCameraS340MM : public Fx2Camera {
  public:
    explicit CCameraS340MM(unsigned long);
};

class CCameraS340MC : public Fx2Camera {
  public:
    explicit CCameraS340MC(unsigned long);
};

class CCameraS340MM_S : public Fx3Edition {
  public:
    explicit CCameraS340MM_S(unsigned long);
};

class CCameraS340MC_S : public Fx3Edition {
  public:
    explicit CCameraS340MC_S(unsigned long);
};

} // namespace vsccam
