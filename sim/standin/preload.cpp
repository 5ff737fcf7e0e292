#include "standin/bus.h"

#include <stdlib.h>

#include <sstream>
#include <string>

// The stand-in as a shared library, for whole programs: linked or preloaded before libusb, it gives
// them the cameras that VSCSIM_CAMERAS names ("VSC470MC VSC470MM"), with a sky, in real time.
namespace {

[[gnu::constructor]] void PlugInNamedCameras()
{
    const char *names = secure_getenv("VSCSIM_CAMERAS");
    std::istringstream words(names ? names : "");
    for (std::string name; words >> name;) {
        if (vscsim::FindModel(name))
            vscsim::Bus::Instance().Plug(name, {.scene = vscsim::Scene::Sky});
    }
}

} // namespace
