#pragma once

#include "models/python/camera_python.h"

namespace vsccam {

class CCameraS048MC : public CCameraPython {
  public:
    explicit CCameraS048MC(unsigned long);
};

class CCameraS048MM : public CCameraPython {
  public:
    explicit CCameraS048MM(unsigned long);
};

} // namespace vsccam
