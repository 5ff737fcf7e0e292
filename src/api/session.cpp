#include "api/session.h"

#include <unistd.h>

namespace vsccam {

Session::~Session()
{
    if (ownerPid == getpid())
        CloseCamera();
    else
        (void)pCamera.release(); // a forked child: camera and threads are its parent's
}

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
