#pragma once

#include "plane.h"

#include <optional>
#include <vector>

namespace vsctool::serve {

/// A picture on its way to an eye: one plane of brightness, or red, green and blue.
struct View {
    std::vector<Plane> planes;
    int fullScale = 0;
    int step = 1;      // by how much samples of the camera differ at least
    int reduction = 1; // pixels of the camera along a side of one of these

    int Width() const { return planes[0].width; }
    int Height() const { return planes[0].height; }
    /// Where stars are looked for.
    const Plane &Brightness() const { return planes[planes.size() / 2]; }
};

/// Half the size, or the picture as it is when it is too small for that. Each cell of a mosaic
/// becomes one pixel with all colours, so that nothing has to be made up.
View HalfSize(const Picture &picture, std::optional<Mosaic> mosaic);

View FullSize(const Picture &picture, std::optional<Mosaic> mosaic);

/// Half of the size again, for sensors that are larger than any screen.
View Halved(View view);

/// Where a part of a picture is cut out, in pixels.
struct Window {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

/// A square of that side around a place, or what of it the picture has room for: it is moved to lie
/// within the picture. It begins at even coordinates, where a mosaic has the same phase.
Window Around(const Picture &picture, int x, int y, int side);

Picture Cropped(const Picture &picture, const Window &window);

} // namespace vsctool::serve
