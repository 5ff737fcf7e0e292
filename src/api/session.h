#pragma once

#include "core/camera_base.h"

#include <cstdint>
#include <memory>

/// The state behind the exported functions: the last count of cameras and the one that is open.
/// One host thread at a time is inside the library, so nothing here is locked.
namespace vsccam {

struct Session {
    static constexpr int kMaxCameras = 1024;

    Session() = default;
    /// Also when the host's process ends with a camera open: no thread is left behind.
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    void CloseCamera();

    int ownerPid = 0; // the process that opened the camera
    std::unique_ptr<CCameraBase> pCamera;
    // Entries behind the count are what earlier counts left there; the one after it may be opened.
    uint32_t ConnectedCameras[kMaxCameras + 1] = {};
    int iConnectedCameras = 0;
    CameraChoice choice; // as of the last count
    int iCamIndex = 0;
    int cur_img_type = 0;
    int data_lenth = 0; // bytes of a frame in the present format, 0 before there is one
};

Session &TheSession();

/// The current camera, nullptr when there is none.
inline CCameraBase *CurrentCamera()
{
    return TheSession().pCamera.get();
}

} // namespace vsccam
