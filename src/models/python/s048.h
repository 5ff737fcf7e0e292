#pragma once

#include "models/edition.h"
#include "models/python/camera_python.h"

// S048: 640 x 480 PYTHON sensor, USB 3.0.
namespace vsccam {

struct S048 : Sensor {
    template <Housing> using Driver = CCameraPython;

    static constexpr CameraModel kModel = {
        .sensorWidth = 640,
        .sensorHeight = 480,
        .pixelSizeUm = 3.75,
        .bayer = 0,
        .gain = {.min = 0, .max = 600, .initial = 200},
        .exposureUs = {.min = 16, .max = 64'000, .initial = 10'000},
        .unverified = {StandIn::SequencerProgram, StandIn::RegisterAddresses, StandIn::LineLimits,
                       StandIn::FrameOffsets, StandIn::Bandwidth},
    };

    static constexpr void Adapt(CameraModel &model)
    {
        if (model.colour)
            return;
        model.pixelSizeUm = 4.8;
        model.gain = {.min = 0, .max = 100, .initial = 50};
    }

    static constexpr Product kProducts[] = {
        {40, 0x048A, "KYR VSC048MC", Colour},
        {41, 0x048B, "KYR VSC048MM", Mono},
    };
};

using CCameraS048MC = CameraOf<S048, Pixels::Colour>;
using CCameraS048MM = CameraOf<S048, Pixels::Mono>;

} // namespace vsccam
