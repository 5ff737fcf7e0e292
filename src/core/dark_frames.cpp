#include "base/debug_print.h"
#include "core/camera_base.h"

namespace vsccam {

int CCameraBase::LoadBMPFromFile(const char *)
{
    OutputDbgPrint("dark frames are not built yet\n");
    return 0;
}

void CCameraBase::UsingDark(bool) {}

} // namespace vsccam
