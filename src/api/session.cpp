#include "api/session.h"

namespace vsccam {

void Session::CloseCamera()
{
    if (pCamera)
        (void)pCamera->CloseCamera(); // false when the device was not open
    pCamera.reset();
    data_lenth = 0;
}

Session &TheSession()
{
    static Session session;
    return session;
}

} // namespace vsccam
