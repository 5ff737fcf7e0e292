#pragma once

#include "core/camera_base.h"
#include "standin/bus.h"

#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace vsccam {

/// Expands "sony 3001=01 3009?; fpga 01=01; cmd A9" into one line per request. Lines of other words
/// ("clear halt 81", "close") stand as they are.
inline std::vector<std::string> Wire(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream groups(text);
    for (std::string group; std::getline(groups, group, ';');) {
        std::istringstream words(group);
        std::string verb;
        words >> verb;
        if (verb != "sony" && verb != "sensor" && verb != "fpga") {
            if (!verb.empty())
                lines.push_back(group.substr(group.find_first_not_of(' ')));
            continue;
        }
        for (std::string item; words >> item;)
            lines.push_back(std::string(verb).append(" ").append(item));
    }
    return lines;
}

template <class T> std::vector<T> operator+(std::vector<T> a, const std::vector<T> &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// A camera object on a simulated camera of its own, which comes and goes with it.
class OpenedCamera {
  public:
    template <class Camera>
    OpenedCamera(std::in_place_type_t<Camera>, std::string_view model,
                 vscsim::CameraOptions options = {})
        : m_device(vscsim::Bus::Instance().Plug(model, std::move(options))),
          m_camera(std::make_unique<Camera>(0UL))
    {
        m_opened = m_camera->OpenCamera(1);
        (void)Traffic();
    }
    ~OpenedCamera()
    {
        (void)m_camera->CloseCamera();
        vscsim::Bus::Instance().Unplug(m_device);
    }
    OpenedCamera(const OpenedCamera &) = delete;
    OpenedCamera &operator=(const OpenedCamera &) = delete;

    CCameraBase *operator->() { return m_camera.get(); }
    bool Opened() const { return m_opened; }
    int Device() const { return m_device; }

    /// What reached the camera since the last call.
    std::vector<std::string> Traffic() { return vscsim::Bus::Instance().TakeTraffic(m_device); }

  private:
    int m_device;
    std::unique_ptr<CCameraBase> m_camera;
    bool m_opened = false;
};

} // namespace vsccam
