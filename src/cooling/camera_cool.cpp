#include "cooling/camera_cool.h"

namespace vsccam {

void CCameraCool::SetAutoTemp(bool on, float targetC)
{
    m_coolerOn = on;
    m_targetTempC = static_cast<int>(targetC);
}

bool CCameraCool::SetPowerPerc(float)
{
    return false;
}

bool CCameraCool::SetFanOn(bool)
{
    return false;
}

} // namespace vsccam
