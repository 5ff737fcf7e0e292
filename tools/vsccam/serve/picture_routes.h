#pragma once

#include "serve/http/router.h"
#include "serve/latest_frame.h"

namespace vsctool::serve {

/// The newest picture, and a stream of them for players. What is made of a frame is made when
/// somebody asks for it, and once for all who ask for the same.
void AddPictureRoutes(Router &router, const LatestFrame &frames);

} // namespace vsctool::serve
