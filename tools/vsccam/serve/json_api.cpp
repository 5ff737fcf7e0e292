#include "serve/json_api.h"

#include "control_words.h"
#include "failure.h"
#include "fits_header.h"
#include "fits_writer.h"
#include "serve/http/members.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>

namespace vsctool::serve {
namespace {

using namespace std::chrono_literals;
using nlohmann::ordered_json;

constexpr auto kStateWait = 1s;
constexpr double kMostCPerMin = 100;

template <class Value> ordered_json OrNull(const std::optional<Value> &value)
{
    return value ? ordered_json(*value) : ordered_json();
}

/// A figure that has been through binary fractions, as people would write it.
double Rounded(double value)
{
    return std::round(value * 1000) / 1000;
}

uint64_t NumberIn(const Request &request, std::string_view name)
{
    const std::string text = Find(request.query, name).value_or("0");
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        throw Refusal(400, fmt::format("'{}' is no whole number", name));
    return number;
}

// ---- what is told

const char *NameOf(Mode mode)
{
    constexpr const char *kNames[] = {"idle", "video", "exposing", "waiting", "lost"};
    return kNames[static_cast<size_t>(mode)];
}

ordered_json AsJson(const Region &region)
{
    return {{"width", region.width}, {"height", region.height}, {"x", region.x}, {"y", region.y}};
}

ordered_json FormatOf(const Snapshot &now)
{
    return {{"type", FormatName(now.form.framing.format)},
            {"bin", now.form.framing.bin},
            {"region", now.form.framing.region ? AsJson(*now.form.framing.region) : ordered_json()},
            {"in_force", AsJson(now.region)},
            {"flip_x", now.form.flipX},
            {"flip_y", now.form.flipY}};
}

ordered_json StatisticsOf(const Snapshot &now)
{
    return {{"frames", now.feed.frames},
            {"dropped", now.feed.dropped},
            {"frames_per_s", Rounded(now.feed.framesPerSecond)},
            {"worst_gap_ms", static_cast<double>(now.feed.worstGap.count()) / 1000},
            {"reconnects", now.reconnects}};
}

ordered_json CaptureOf(const Snapshot &now)
{
    if (!now.series)
        return {};
    const SeriesState &series = *now.series;
    const bool running = now.mode == Mode::kExposing || now.mode == Mode::kWaiting ||
                         (now.mode == Mode::kLost && series.begun);
    ordered_json json = {
        {"running", running},          {"exposure_s", Seconds(series.plan.exposure)},
        {"taken", series.taken},       {"count", series.plan.count},
        {"retaken", series.retaken},   {"last_file", series.lastFile},
        {"failure", now.seriesFailure}};
    if (running && series.begun)
        json["elapsed_s"] = Rounded(
            std::chrono::duration<double>(ExposureRun::Clock::now() - series.since).count());
    return json;
}

ordered_json RecordingOf(const Snapshot &now)
{
    if (!now.recording)
        return {};
    const RecordingNews &news = *now.recording;
    return {{"running", news.running},
            {"file", news.file},
            {"frames", news.state.frames},
            {"waiting", news.state.waiting},
            {"dropped", news.state.dropped},
            {"bytes", news.state.bytes},
            {"elapsed_s", Seconds(news.state.elapsed)},
            {"failure", news.failure}};
}

ordered_json CoolingOf(const Snapshot &now)
{
    if (!now.cooling)
        return {};
    return {{"temperature_c", Rounded(now.cooling->celsius)},
            {"target_c", now.cooling->targetC},
            {"power_percent", now.cooling->powerPerCent},
            {"on", now.cooling->on},
            {"ramping", now.cooling->onRamp},
            {"warming", now.cooling->warming}};
}

ordered_json GuideOf(const GuidePort &port)
{
    ordered_json json;
    for (int direction = 0; direction < static_cast<int>(std::size(kDirections)); ++direction) {
        const auto left = port.Left(direction);
        json[kDirections[direction]] = left ? ordered_json(Seconds(*left)) : ordered_json();
    }
    return json;
}

ordered_json AsJson(const std::vector<Event> &events)
{
    ordered_json json = ordered_json::array();
    for (const Event &event : events)
        json.push_back(
            {{"number", event.number}, {"at", FormatUtc(event.at)}, {"text", event.text}});
    return json;
}

ordered_json StateOf(CameraWorks &works, uint64_t eventsAfter)
{
    const auto now = works.Now();
    return {{"revision", now->revision},
            {"model", works.Facts().model},
            {"simulated", works.Facts().simulated},
            {"present", now->present},
            {"mode", NameOf(now->mode)},
            {"temperature_c", OrNull(now->celsius)},
            {"format", FormatOf(*now)},
            {"statistics", StatisticsOf(*now)},
            {"capture", CaptureOf(*now)},
            {"recording", RecordingOf(*now)},
            {"disk_free", OrNull(works.Files().BytesFree())},
            {"cooling", CoolingOf(*now)},
            {"guide", GuideOf(works.Guide())},
            {"events", AsJson(works.Log().After(eventsAfter))}};
}

ordered_json InfoOf(const CameraFacts &facts)
{
    ordered_json formats = ordered_json::array();
    for (const PixelFormat format : facts.formats)
        formats.push_back(FormatName(format));
    ordered_json info = {{"model", facts.model},
                         {"simulated", facts.simulated},
                         {"version", VSCCAM_VERSION},
                         {"width", facts.width},
                         {"height", facts.height},
                         {"pixel_um", facts.pixelUm},
                         {"colour", facts.colour},
                         {"cooled", facts.cooled},
                         {"thermometer", facts.thermometer},
                         {"bins", facts.bins},
                         {"formats", formats},
                         {"shortest_exposure_s", Seconds(facts.shortestExposure)},
                         {"longest_exposure_s", Seconds(facts.longestExposure)}};
    if (facts.electronsPerAdu > 0)
        info["electrons_per_adu"] = facts.electronsPerAdu;
    if (!facts.notVerified.empty())
        info["not_verified"] = facts.notVerified;
    return info;
}

ordered_json ControlsOf(const Snapshot &now)
{
    ordered_json controls = ordered_json::array();
    for (const auto &[control, state, byDefault] : now.controls)
        controls.push_back(vsctool::AsJson(*control, state, byDefault));
    return {{"controls", controls}};
}

Response ControlOf(const Snapshot &now, const NamedControl &wanted)
{
    const auto found = std::ranges::find_if(
        now.controls, [&](const auto &entry) { return entry.control == &wanted; });
    if (found == now.controls.end())
        throw Refusal(404, fmt::format("this camera has no {}", wanted.word));
    return JsonResponse(vsctool::AsJson(wanted, found->state, found->byDefault));
}

ordered_json HistoryOf(const std::deque<CoolingReading> &readings)
{
    ordered_json history = ordered_json::array();
    for (const CoolingReading &reading : readings)
        history.push_back({{"at", FormatUtc(reading.at)},
                           {"temperature_c", Rounded(reading.celsius)},
                           {"target_c", reading.targetC},
                           {"power_percent", reading.powerPerCent}});
    return {{"history", history}};
}

/// The last picture as a file. It is made where clients do not wait for each other.
Answer GetPicture(CameraWorks &works)
{
    return Later{.ask = [&works]() -> std::optional<Response> {
        const auto taken = works.LastPicture();
        if (!taken)
            throw Refusal(404, "no picture was taken yet");
        const std::string name = taken->file.empty() ? "picture.fits" : taken->file;
        return Response{
            .contentType = "application/fits",
            .body = std::make_shared<std::string>(
                FitsBytesOf(taken->frame->picture, HeaderOf(taken->facts))),
            .headers = {{"Content-Disposition", fmt::format("attachment; filename=\"{}\"", name)}}};
    }};
}

/// Answers at once when something has changed since the revision, otherwise when it does.
Answer AwaitState(CameraWorks &works, const Request &request)
{
    const uint64_t after = NumberIn(request, "after");
    const uint64_t events = NumberIn(request, "events");
    const auto respond = [&works, events] { return JsonResponse(StateOf(works, events)); };
    if (works.Now()->revision > after)
        return respond();
    return Later{.ask = [&works, after, respond]() -> std::optional<Response> {
                     if (works.Now()->revision <= after)
                         return std::nullopt;
                     return respond();
                 },
                 .patience = kStateWait,
                 .tooLate = respond};
}

// ---- what is changed

Response Done()
{
    return JsonResponse(ordered_json::object());
}

Answer PutControl(JobQueue &jobs, const Request &request)
{
    const NamedControl &control = [&]() -> const NamedControl & {
        try {
            return FindControl(request.captured.at(0));
        } catch (const Failure &unknown) {
            throw Refusal(404, unknown.what());
        }
    }();
    if (!control.writable)
        throw Refusal(409, fmt::format("{} can only be read", control.word));
    Members members(request);
    const Setting setting = SettingOf(control, members);
    members.End();
    return WhenDone(
        jobs, [setting](CameraWorks &works) { works.SetControl(setting); }, Done);
}

PixelFormat FormatNamed(const std::string &name)
{
    const auto *found = std::ranges::find(kFormatNames, name);
    if (found == std::end(kFormatNames))
        throw Refusal(400,
                      fmt::format("'{}' is no format; there are raw8, raw16, rgb24, y8", name));
    return static_cast<PixelFormat>(found - std::begin(kFormatNames));
}

Region RegionIn(Members &members)
{
    const Region region = {Required(members.Whole("width"), "width"),
                           Required(members.Whole("height"), "height"),
                           members.Whole("x").value_or(0), members.Whole("y").value_or(0)};
    members.End();
    if (region.width < 1 || region.height < 1 || region.x < 0 || region.y < 0)
        throw Refusal(400, "a region has a size, and begins within the sensor");
    return region;
}

Answer PutFormat(JobQueue &jobs, const CameraWorks &works, const Request &request)
{
    Members members(request);
    PictureForm form = works.Now()->form;
    if (const auto type = members.Text("type"))
        form.framing.format = FormatNamed(*type);
    if (const auto bin = members.Whole("bin")) {
        if (*bin != form.framing.bin)
            form.framing.region.reset(); // which was one of other pixels
        form.framing.bin = *bin;
    }
    std::optional<Members> region;
    if (members.Object("region", region))
        form.framing.region = region ? std::optional(RegionIn(*region)) : std::nullopt;
    form.flipX = members.Flag("flip_x").value_or(form.flipX);
    form.flipY = members.Flag("flip_y").value_or(form.flipY);
    members.End();
    return WhenDone(
        jobs, [form](CameraWorks &camera) { camera.SetForm(form); }, Done);
}

Answer PutVideo(JobQueue &jobs, const Request &request)
{
    Members members(request);
    const bool on = Required(members.Flag("on"), "on");
    members.End();
    return WhenDone(
        jobs, [on](CameraWorks &works) { works.SetVideo(on); }, Done);
}

Answer PutCapture(JobQueue &jobs, const CameraWorks &works, const Request &request)
{
    Members members(request);
    SeriesPlan plan;
    plan.exposure = Required(members.Time("exposure_s"), "exposure_s");
    plan.count = members.Whole("count").value_or(1);
    plan.interval = members.Time("interval_s").value_or(0us);
    plan.name = members.Text("name").value_or("");
    plan.type = members.Text("type").value_or("light");
    plan.object = members.Text("object").value_or("");
    plan.framing = works.Now()->form.framing;
    if (const auto format = members.Text("format"))
        plan.framing.format = FormatNamed(*format);
    members.End();
    if (plan.count < 1 || plan.count > 1'000'000)
        throw Refusal(400, "'count' is 1 to 1000000");
    if (std::ranges::none_of(kPictureTypes,
                             [&](const PictureType &type) { return plan.type == type.name; }))
        throw Refusal(400, "'type' is light, dark, flat or bias");
    return WhenDone(
        jobs, [plan](CameraWorks &camera) { camera.StartSeries(plan); }, Done);
}

Answer PutRecord(JobQueue &jobs, const CameraWorks &works, const Request &request)
{
    Members members(request);
    const std::string name = Required(members.Text("file"), "file");
    RecordingPlan plan = {.file = works.Files().FileOf(name),
                          .limits = {.duration = members.Time("duration_s"), .frames = {}}};
    if (const auto frames = members.Whole("frames"))
        plan.limits.frames = *frames;
    members.End();
    if (plan.file.extension() != ".ser")
        throw Refusal(400, "'file' ends in .ser");
    if (plan.limits.frames && *plan.limits.frames < 1)
        throw Refusal(400, "'frames' is 1 at least");
    return WhenDone(
        jobs, [plan](CameraWorks &camera) { camera.StartRecording(plan); }, Done);
}

Answer PutCooling(JobQueue &jobs, const Request &request)
{
    Members members(request);
    CoolingWish wish;
    wish.on = Required(members.Flag("on"), "on");
    if (wish.on)
        wish.targetC = Required(members.Whole("target_c"), "target_c");
    wish.rampCPerMin = members.Number("ramp_c_per_min");
    wish.atOnce = members.Flag("at_once").value_or(false);
    members.End();
    if (wish.rampCPerMin && !(*wish.rampCPerMin >= 0.1 && *wish.rampCPerMin <= kMostCPerMin))
        throw Refusal(400, "'ramp_c_per_min' is 0.1 to 100");
    return WhenDone(
        jobs, [wish](CameraWorks &works) { works.SetCooling(wish); }, Done);
}

Response PutGuide(CameraWorks &works, const Request &request)
{
    Members members(request);
    const std::string name = Required(members.Text("direction"), "direction");
    const Microseconds time = Required(members.Time("time_s"), "time_s");
    members.End();
    const auto *found = std::ranges::find(kDirections, name);
    if (found == std::end(kDirections))
        throw Refusal(400, "'direction' is north, south, east or west");
    if (time > GuidePort::kLongest)
        throw Refusal(400, "'time_s' is 600 at most");
    if (!works.Now()->present)
        throw Failure(Exit::kCameraLost, "the camera is gone");
    const auto length = std::chrono::ceil<std::chrono::milliseconds>(time);
    if (!works.Guide().Pulse(static_cast<GuideD>(found - std::begin(kDirections)), length))
        throw Failure(Exit::kBusy, "a pulse is under way on this axis");
    return Done();
}

/// One that takes no members.
Answer PutStop(JobQueue &jobs, const Request &request, void (CameraWorks::*stop)())
{
    Members(request).End();
    return WhenDone(
        jobs, [stop](CameraWorks &works) { (works.*stop)(); }, Done);
}

void AddLooks(Router &router, CameraWorks &works)
{
    router.Add({"GET", "/api/state",
                [&works](const Request &request) { return AwaitState(works, request); }});
    router.Add(
        {"GET", "/api/info",
         [response = JsonResponse(InfoOf(works.Facts()))](const Request &) { return response; }});
    router.Add({"GET", "/api/controls",
                [&works](const Request &) { return JsonResponse(ControlsOf(*works.Now())); }});
    router.Add({"GET", "/api/controls/{name}", [&works](const Request &request) {
                    for (const NamedControl &control : AllControls())
                        if (request.captured.at(0) == control.word)
                            return ControlOf(*works.Now(), control);
                    throw Refusal(404, fmt::format("no control '{}'", request.captured.at(0)));
                }});
    router.Add(
        {"GET", "/api/picture.fits", [&works](const Request &) { return GetPicture(works); }});
    router.Add({"GET", "/api/format",
                [&works](const Request &) { return JsonResponse(FormatOf(*works.Now())); }});
    router.Add({"GET", "/api/statistics",
                [&works](const Request &) { return JsonResponse(StatisticsOf(*works.Now())); }});
    router.Add({"GET", "/api/cooling", [&works](const Request &) {
                    return JsonResponse(HistoryOf(works.CoolingHistory()));
                }});
    router.Add({"GET", "/api/events", [&works](const Request &request) {
                    return JsonResponse(
                        {{"events", AsJson(works.Log().After(NumberIn(request, "after")))}});
                }});
}

void AddChanges(Router &router, CameraWorks &works, JobQueue &jobs)
{
    const auto add = [&router](const char *path, Handler handler) {
        router.Add({"PUT", path, std::move(handler)});
    };
    add("/api/controls/{name}", [&](const Request &r) { return PutControl(jobs, r); });
    add("/api/format", [&](const Request &r) { return PutFormat(jobs, works, r); });
    add("/api/video", [&](const Request &r) { return PutVideo(jobs, r); });
    add("/api/capture", [&](const Request &r) { return PutCapture(jobs, works, r); });
    add("/api/capture/stop",
        [&](const Request &r) { return PutStop(jobs, r, &CameraWorks::AbortSeries); });
    add("/api/record", [&](const Request &r) { return PutRecord(jobs, works, r); });
    add("/api/record/stop",
        [&](const Request &r) { return PutStop(jobs, r, &CameraWorks::StopRecording); });
    add("/api/cooling", [&](const Request &r) { return PutCooling(jobs, r); });
    add("/api/guide", [&](const Request &r) { return PutGuide(works, r); });
}

} // namespace

Answer WhenDone(JobQueue &jobs, Job::Work work, std::function<Response()> respond)
{
    const JobPtr job = jobs.Post(std::move(work));
    return Later{.ask = [job, respond = std::move(respond)]() -> std::optional<Response> {
                     if (!job->IsDone())
                         return std::nullopt;
                     job->CheckResult();
                     return respond();
                 },
                 .tooLate = [] { return ErrorResponse(503, "the camera is busy"); }};
}

Setting SettingOf(const NamedControl &control, Members &members)
{
    if (members.Flag("auto").value_or(false))
        return {.control = &control, .automatic = true};
    switch (control.unit) {
    case ControlUnit::kMicroseconds: {
        const Microseconds time = Required(members.Time("value"), "value");
        return {.control = &control,
                .value = static_cast<int>(std::min<int64_t>(time.count(), INT32_MAX))};
    }
    case ControlUnit::kSwitch:
        return {.control = &control, .value = Required(members.Flag("value"), "value") ? 1 : 0};
    default:
        return {.control = &control, .value = Required(members.Whole("value"), "value")};
    }
}

void AddJsonApi(Router &router, CameraWorks &works, JobQueue &jobs)
{
    AddLooks(router, works);
    AddChanges(router, works, jobs);
}

} // namespace vsctool::serve
