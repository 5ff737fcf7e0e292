#include "serve/live_picture.h"

#include "serve/jpeg.h"
#include "serve/view.h"
#include "statistics.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <numeric>

namespace vsctool::serve {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kLoupeSide = 256;
constexpr int kStarSide = 64; // of what is measured of a star: it has room, and some sky
constexpr size_t kBins = 128;
constexpr size_t kMostKept = 16; // pictures of a frame; who moves a slider wishes another each time

struct Star {
    double hfdPx = 0;
    int x = 0;
    int y = 0;
    int peak = 0;
};

/// The brightest one of a part of a picture that is not reduced.
std::optional<Star> BrightestStar(const Picture &picture, const Window &window, bool isMosaic)
{
    const Plane plane = Luminance(Cropped(picture, window), isMosaic);
    const Background sky = BackgroundOf(HistogramOf(plane));
    const std::vector<StarPeak> stars = FindStars(plane, sky, SaturationOf(picture.format));
    if (stars.empty())
        return std::nullopt;
    const StarPeak &star = stars[0];
    return Star{HalfFluxDiameter(plane, sky, star), window.x + star.x, window.y + star.y,
                star.value};
}

/// The brightest one of all: found where the picture is small, and measured where it is not.
std::optional<Star> BrightestStar(const Frame &frame, const View &view, const Background &sky)
{
    const int saturation = SaturationOf(frame.picture.format) * view.step;
    for (const StarPeak &peak : FindStars(view.Brightness(), sky, saturation)) {
        const Window window =
            Around(frame.picture, peak.x * view.reduction, peak.y * view.reduction, kStarSide);
        if (const auto star = BrightestStar(frame.picture, window, frame.mosaic.has_value()))
            return star;
    }
    return std::nullopt;
}

/// How much light there is in one plane.
struct Light {
    Histogram histogram;
    Background sky;
};

std::vector<Light> LightOf(const View &view)
{
    std::vector<Light> light;
    for (const Plane &plane : view.planes) {
        Histogram histogram = HistogramOf(plane);
        const Background sky = BackgroundOf(histogram);
        light.push_back({std::move(histogram), sky});
    }
    return light;
}

/// The histogram over the square root of the level, on which noise is equally wide everywhere and
/// a dark sky has room.
std::vector<uint32_t> BinsOf(const Histogram &histogram, int fullScale)
{
    std::vector<uint32_t> bins(kBins);
    const double levels = fullScale + 1;
    const auto begin = [&](size_t bin) {
        const double root = static_cast<double>(bin) / kBins;
        return histogram.begin() + std::lround(std::ceil(root * root * levels));
    };
    for (size_t bin = 0; bin < kBins; ++bin)
        bins[bin] = std::accumulate(begin(bin), begin(bin + 1), uint32_t{0});
    return bins;
}

Json Rounded(double value, double perUnit)
{
    return std::round(value * perUnit) / perUnit;
}

Json ToJson(const std::optional<Star> &star)
{
    if (!star)
        return nullptr;
    return {
        {"hfd", Rounded(star->hfdPx, 100)}, {"x", star->x}, {"y", star->y}, {"peak", star->peak}};
}

Json ToJson(const Stretch &stretch)
{
    return {{"black", stretch.black}, {"midtone", stretch.midtone}, {"white", stretch.white}};
}

/// Of the plane in which stars are looked for, in units of the camera.
Json ToJson(const View &view, const Light &light)
{
    const Histogram &histogram = light.histogram;
    const auto highest = std::find_if(histogram.rbegin(), histogram.rend(),
                                      [](uint32_t count) { return count > 0; });
    const double max = static_cast<double>(std::distance(highest, histogram.rend()) - 1);
    return {{"sky", Rounded(light.sky.level / view.step, 10)},
            {"noise", Rounded(light.sky.noise / view.step, 10)},
            {"max", Rounded(max / view.step, 10)},
            {"fullScale", view.fullScale / view.step}};
}

Json FactsOf(const Frame &frame)
{
    return {{"sequence", frame.sequence},
            {"utc", FormatUtc(frame.at)},
            {"width", frame.picture.width},
            {"height", frame.picture.height},
            {"bin", frame.bin},
            {"exposure", Seconds(frame.exposure)},
            {"gain", frame.gain},
            {"dropped", frame.dropped},
            {"temperature", frame.temperatureC ? Json(*frame.temperatureC) : Json()}};
}

} // namespace

LivePicture MakePicture(const Frame &frame, const PictureWish &wish)
{
    const Picture &picture = frame.picture;
    Window window{0, 0, picture.width, picture.height};
    View view;
    if (wish.loupe) {
        window = Around(picture, wish.loupe->x, wish.loupe->y, kLoupeSide);
        view = FullSize(Cropped(picture, window), frame.mosaic);
    } else {
        view = wish.size == PictureWish::Size::kFull ? FullSize(picture, frame.mosaic)
                                                     : HalfSize(picture, frame.mosaic);
    }

    const std::vector<Light> light = LightOf(view);
    std::vector<Stretch> stretches;
    std::vector<Curve> curves;
    Json histograms = Json::array();
    for (const Light &channel : light) {
        stretches.push_back(
            wish.stretch.value_or(AutoStretch(channel.sky, view.fullScale, view.step)));
        curves.push_back(CurveOf(stretches.back(), static_cast<size_t>(view.fullScale)));
        histograms.push_back(BinsOf(channel.histogram, view.fullScale));
    }
    const size_t middle = light.size() / 2;

    Json facts = FactsOf(frame);
    facts["window"] = {window.x, window.y, window.width, window.height};
    facts["stretch"] = ToJson(stretches[middle]);
    facts["levels"] = ToJson(view, light[middle]);
    facts["focus"] = ToJson(wish.loupe ? BrightestStar(picture, window, frame.mosaic.has_value())
                                       : BrightestStar(frame, view, light[middle].sky));
    facts["histogram"] = std::move(histograms);
    if (!wish.loupe && wish.size == PictureWish::Size::kQuarter)
        view = Halved(std::move(view)); // all that was measured needs more
    facts["reduction"] = view.reduction;
    return {ToJpeg(Stretched(view.planes, curves), view.Width(), view.Height()), facts.dump()};
}

std::shared_ptr<const LivePicture> LivePictures::Of(const FramePtr &frame, const PictureWish &wish)
{
    std::unique_lock lock(m_mutex);
    if (frame->sequence > m_sequence) {
        m_sequence = frame->sequence;
        m_made.clear();
    }
    const bool isNewest = frame->sequence == m_sequence;
    if (const auto found = m_made.find(wish); isNewest && found != m_made.end()) {
        const Made made = found->second; // or is being made by another thread
        lock.unlock();
        return made.get();
    }
    std::packaged_task<std::shared_ptr<const LivePicture>()> make(
        [&] { return std::make_shared<const LivePicture>(MakePicture(*frame, wish)); });
    const Made made = make.get_future().share();
    if (m_made.size() >= kMostKept)
        m_made.clear();
    if (isNewest)
        m_made.emplace(wish, made);
    lock.unlock();
    make();
    return made.get();
}

} // namespace vsctool::serve
