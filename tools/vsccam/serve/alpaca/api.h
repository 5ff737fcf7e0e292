#pragma once

#include "serve/alpaca/device.h"
#include "serve/http/router.h"

#include <string>

namespace vsctool::serve {

/// The camera for programs that speak Alpaca: device 0, and what leads to it.
/// @param uniqueId  by which clients know the camera again
void AddAlpacaApi(Router &router, AlpacaDevice &device, JobQueue &jobs,
                  const std::string &uniqueId);

} // namespace vsctool::serve
