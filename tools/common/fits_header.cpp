#include "fits_header.h"

#include "identity.h"
#include "product_list.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <vsccam.h>

#include <algorithm>

namespace vsctool {
namespace {

std::string HeaderType(const std::string &type)
{
    const auto *known = std::find_if(std::begin(kPictureTypes), std::end(kPictureTypes),
                                     [&](const PictureType &t) { return t.name == type; });
    return known == std::end(kPictureTypes) ? type : known->headerText;
}

} // namespace

std::string IdentityForHeader()
{
    const auto id = IdOfCamera();
    return id ? fmt::format("{:02X}", fmt::join(id->id, "")) : "";
}

PictureFacts FactsOf(const Camera &camera, const Exposure &exposure)
{
    return FactsOf(camera, exposure, IdentityForHeader());
}

PictureFacts FactsOf(const Camera &camera, const Exposure &exposure, const std::string &identity)
{
    PictureFacts facts;
    facts.identity = identity;
    facts.model = camera.Entry().model;
    facts.software = fmt::format("vsccam {}", VSCCAM_VERSION);
    facts.start = exposure.start;
    facts.asked = exposure.asked;
    facts.planned = exposure.planned;
    facts.measured = exposure.measured;
    facts.gain = getValue(CONTROL_GAIN, nullptr);
    facts.offset = getValue(CONTROL_BRIGHTNESS, nullptr);
    facts.electronsPerAdu = Decimal(getElectronsPerADU());
    if (isAvailable(CONTROL_TEMPERATURE))
        facts.temperatureC = Decimal(getSensorTemp());
    if (isCoolerCam()) {
        facts.coolerPerCent = getValue(CONTROL_COOLER_POWER, nullptr);
        if (getValue(CONTROL_COOLER_ON, nullptr))
            facts.targetC = getValue(CONTROL_TARGET_TEMP, nullptr);
    }
    facts.bin = getBin();
    facts.pixelUm = getPixelSize();
    facts.startX = getStartX();
    facts.startY = getStartY();
    facts.mosaic = camera.PictureMosaic();
    facts.bandwidthPerCent = getValue(CONTROL_BANDWIDTH, nullptr);
    facts.highSpeed = getValue(CONTROL_HIGH_SPEED, nullptr) != 0;
    // With fast read-out of 8 bits, some converters use fewer bits than they have.
    const vsccam::Product *const product = camera.Entry().Product();
    if (product && (!facts.highSpeed || exposure.picture.format == PixelFormat::kRaw16))
        facts.adcBits = product->adcBits;
    facts.droppedFrames = exposure.droppedFrames;
    return facts;
}

std::vector<FitsKey> HeaderOf(const PictureFacts &facts)
{
    const double seconds = Seconds(facts.planned);
    const Microseconds taken = facts.measured.value_or(facts.planned);
    const double binnedUm = facts.pixelUm * facts.bin;
    std::vector<FitsKey> keys = {
        {"DATE-OBS", FormatUtc(facts.start), "start of exposure"},
        {"DATE-AVG", FormatUtc(facts.start + taken / 2), "middle of exposure"},
        {"DATE-END", FormatUtc(facts.start + taken), "end of exposure"},
        {"TIMESYS", "UTC", "of all times here"},
        {"EXPTIME", seconds, "[s] exposure as planned, in whole steps"},
        {"EXPOSURE", seconds, "[s] exposure as planned, in whole steps"},
        {"EXPREQ", Seconds(facts.asked), "[s] exposure asked for"},
        {"GAIN", facts.gain, "gain control"},
        {"OFFSET", facts.offset, "brightness control"},
        {"XBINNING", facts.bin, ""},
        {"YBINNING", facts.bin, ""},
        {"XPIXSZ", binnedUm, "[um] pixel width with binning"},
        {"YPIXSZ", binnedUm, "[um] pixel height with binning"},
        {"PIXSIZE1", facts.pixelUm, "[um] pixel width of the sensor"},
        {"PIXSIZE2", facts.pixelUm, "[um] pixel height of the sensor"},
        {"XORGSUBF", facts.startX, "[px] left edge of region, binned"},
        {"YORGSUBF", facts.startY, "[px] top edge of region, binned"},
        {"ROWORDER", "TOP-DOWN", "first row in the file is the top"},
        {"INSTRUME", facts.model, ""},
        {"IMAGETYP", HeaderType(facts.type), ""},
        {"SWCREATE", facts.software, ""},
        {"USBLIMIT", facts.bandwidthPerCent, "[%] USB bandwidth"},
        {"READMODE", facts.highSpeed ? 1 : 0, "1: high-speed read-out"},
        {"DROPPED", facts.droppedFrames, "frames lost during the exposure"},
    };
    const auto putText = [&](const char *name, const std::string &value, const char *comment) {
        if (!value.empty())
            keys.push_back({name, value, comment});
    };
    if (facts.measured)
        keys.push_back({"EXPMEAS", Seconds(*facts.measured), "[s] exposure as measured"});
    if (facts.adcBits)
        keys.push_back({"BITDEPTH", *facts.adcBits, "[bit] of the converter"});
    putText("OBJECT", facts.object, "");
    putText("CAMID", facts.identity, "identity that the camera holds");
    if (facts.electronsPerAdu > 0)
        keys.push_back(
            {"EGAIN", facts.electronsPerAdu, "[e-/ADU] of the model, at an unknown gain"});
    if (facts.temperatureC)
        keys.push_back({"CCD-TEMP", *facts.temperatureC, "[Celsius] sensor"});
    if (facts.targetC)
        keys.push_back({"SET-TEMP", *facts.targetC, "[Celsius] target of the cooler"});
    if (facts.coolerPerCent)
        keys.push_back({"COOLPOWR", *facts.coolerPerCent, "[%] cooler"});
    if (facts.mosaic) {
        keys.push_back({"BAYERPAT", BayerPattern(*facts.mosaic), "as the rows stand here"});
        keys.push_back({"XBAYROFF", 0, ""});
        keys.push_back({"YBAYROFF", 0, ""});
    }
    if (facts.simulated)
        keys.push_back({"SIMULATE", true, "taken with a simulated camera"});
    return keys;
}

} // namespace vsctool
