#pragma once

#include "serve/camera_works.h"
#include "serve/http/router.h"
#include "serve/jobs.h"

#include <functional>

namespace vsctool::serve {

/// The camera for programs, and for the page. docs/openapi.json describes it.
void AddJsonApi(Router &router, CameraWorks &works, JobQueue &jobs);

/// Has the camera's thread do a job. The answer comes when it is done: what it has thrown, or else
/// what `respond` makes.
Answer WhenDone(JobQueue &jobs, Job::Work work, std::function<Response()> respond);

/// What a JSON number of a control's unit is in the library's figures. Throws Refusal.
Setting SettingOf(const NamedControl &control, class Members &members);

} // namespace vsctool::serve
