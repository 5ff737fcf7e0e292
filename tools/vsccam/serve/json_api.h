#pragma once

#include "serve/camera_works.h"
#include "serve/http/router.h"
#include "serve/jobs.h"

namespace vsctool::serve {

/// The camera for programs, and for the page.
void AddJsonApi(Router &router, CameraWorks &works, JobQueue &jobs);

} // namespace vsctool::serve
