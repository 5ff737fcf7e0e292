#pragma once

#include "core/camera_base.h"

namespace vsccam {

/// A camera with a thermo-electric cooler and a fan.
class CCameraCool : public CCameraBase {
  public:
    explicit CCameraCool(const CameraModel &model) : CCameraBase(model) {}

    void SetAutoTemp(bool on, float targetC);
    bool SetPowerPerc(float percent);
    bool SetFanOn(bool on);
};

} // namespace vsccam
