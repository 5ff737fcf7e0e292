#pragma once

#include "camera.h"
#include "fits_key.h"

#include <optional>
#include <string>
#include <vector>

namespace vsctool {

/// All that is told about a picture, in its header and on the terminal.
struct PictureFacts {
    std::string model;
    std::string software;
    std::string identity; // of the camera, in hex; empty when it holds none
    std::string type;     // light, dark, flat, bias
    std::string object;
    UtcTime start;
    Microseconds asked{};
    Microseconds planned{};
    std::optional<Microseconds> measured; // see Exposure
    int gain = 0;
    int offset = 0;
    double electronsPerAdu = 0; // 0: not known
    std::optional<int> adcBits; // of the converter, where they are known
    std::optional<double> temperatureC;
    std::optional<int> targetC;       // of a cooler that is on
    std::optional<int> coolerPerCent; // of cooled models
    int bin = 1;
    double pixelUm = 0;
    int startX = 0;
    int startY = 0;
    std::optional<Mosaic> mosaic;
    int bandwidthPerCent = 0;
    bool highSpeed = false;
    int droppedFrames = 0;
    bool simulated = false;
};

/// Identity of the open camera, in hex; empty when it holds none. It is read from its flash.
std::string IdentityForHeader();

/// Asks the open camera; what the host decides (type, object, simulated) is left open.
PictureFacts FactsOf(const Camera &camera, const Exposure &exposure);
/// The same where the identity is known.
PictureFacts FactsOf(const Camera &camera, const Exposure &exposure, const std::string &identity);

std::vector<FitsKey> HeaderOf(const PictureFacts &facts);

/// Names of picture types, with the words that programs look for in headers.
struct PictureType {
    const char *name;
    const char *headerText;
};
inline constexpr PictureType kPictureTypes[] = {{"light", "Light Frame"},
                                                {"dark", "Dark Frame"},
                                                {"flat", "Flat Frame"},
                                                {"bias", "Bias Frame"}};

} // namespace vsctool
