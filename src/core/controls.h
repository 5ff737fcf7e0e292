#pragma once

#include "catalogue/control_list.h"
#include "core/camera_model.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

/// The newer control interface: a camera lists its controls and describes each of them.
namespace vsccam {

inline constexpr size_t kControlTypes = std::size(kControlList);

/// Results of SetControlValue.
inline constexpr int kControlSet = 0;
inline constexpr int kControlNotSettable = 3;
inline constexpr int kControlRefused = 16;

/// What hosts are told of a control; flags are 0 or 1.
struct _VSC_CONTROL_CAPS { // NOLINT(bugprone-reserved-identifier): the interface's name
    char name[64];
    char description[128];
    int32_t maximum;
    int32_t minimum;
    int32_t initial;
    int32_t autoSupported;
    int32_t writable;
    VSC_CONTROL_TYPE type;
};

/// What hosts are told of a camera; flags are 0 or 1.
struct _VSC_CAMERA_INFO { // NOLINT(bugprone-reserved-identifier): the interface's name
    char name[64];
    int32_t reserved; // not written
    int32_t maxHeight;
    int32_t maxWidth;
    int32_t colour;
    int32_t bayer;
    int32_t bins[16];      // ends with 0 unless full
    int32_t imageTypes[8]; // as hosts number them; ends with -1
    double pixelSizeUm;
    int32_t mechanicalShutter;
    int32_t guidePort;
    int32_t cooled;
    int32_t usb3Host;
    int32_t usb3Camera;
    float electronsPerAdu;
};

/// What the newer control interface keeps of a camera.
struct ControlListing {
    std::array<VSC_CONTROL_TYPE, 64> types{}; // that the model offers, in the order of the list
    int count = 0;

    // Used within sequences of Programming.
    int32_t exposureAskedUs = -1; // last
    bool exposureAutoAsked = false;
};

/// What is known of each control of a model, also of those that it does not offer.
ControlRange RangeOf(const CameraModel &model, const ControlFacts &control);
bool Offers(const CameraModel &model, const ControlFacts &control);

} // namespace vsccam
