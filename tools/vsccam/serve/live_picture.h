#pragma once

#include "serve/frame.h"
#include "stretch.h"

#include <compare>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace vsctool::serve {

/// What somebody wants to see of a frame.
struct PictureWish {
    enum class Size { kFull, kHalf, kQuarter };
    struct Place {
        int x = 0;
        int y = 0;
        auto operator<=>(const Place &) const = default;
    };

    Size size = Size::kHalf;
    std::optional<Stretch> stretch; // nothing: what suits the picture
    std::optional<Place> loupe;     // only a square around this place is wanted, pixel by pixel

    auto operator<=>(const PictureWish &) const = default;
};

struct LivePicture {
    std::string jpeg;
    std::string facts; // JSON on one line: of the frame, of its light, and of its brightest star
};

LivePicture MakePicture(const Frame &frame, const PictureWish &wish);

/// Pictures of the newest frame. Each is made once for all who wish the same; of any thread.
class LivePictures {
  public:
    std::shared_ptr<const LivePicture> Of(const FramePtr &frame, const PictureWish &wish);

  private:
    using Made = std::shared_future<std::shared_ptr<const LivePicture>>;

    std::mutex m_mutex;
    uint64_t m_sequence = 0;            // guarded by m_mutex, as is what follows
    std::map<PictureWish, Made> m_made; // of that frame
};

} // namespace vsctool::serve
