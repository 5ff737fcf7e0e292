#include "serve/json_api.h"

#include <nlohmann/json.hpp>

namespace vsctool::serve {
namespace {

using nlohmann::ordered_json;

ordered_json StateOf(const Snapshot &now)
{
    return {{"model", now.model},
            {"simulated", now.simulated},
            {"present", now.present},
            {"video", now.video},
            {"statistics",
             {{"frames", now.feed.frames},
              {"dropped", now.feed.dropped},
              {"frames_per_s", now.feed.framesPerSecond},
              {"worst_gap_ms", static_cast<double>(now.feed.worstGap.count()) / 1000}}}};
}

} // namespace

void AddJsonApi(Router &router, CameraWorks &works, JobQueue &)
{
    router.Add({"GET", "/api/state",
                [&works](const Request &) { return JsonResponse(StateOf(*works.Now())); }});
}

} // namespace vsctool::serve
