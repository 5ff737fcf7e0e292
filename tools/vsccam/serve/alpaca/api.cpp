#include "serve/alpaca/api.h"

#include "failure.h"
#include "serve/alpaca/image.h"
#include "serve/alpaca/members.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>

namespace vsctool::serve {
namespace {

using nlohmann::ordered_json;

/// A request, and by what numbers it is answered.
struct Transfer {
    uint32_t client = 0;
    Transaction numbers;
    bool wantsBytes = false; // an image in the binary form, and its errors, too
};

Response Envelope(const Transfer &transfer, ordered_json answer, int number = 0,
                  const std::string &message = "")
{
    answer["ClientTransactionID"] = transfer.numbers.client;
    answer["ServerTransactionID"] = transfer.numbers.server;
    answer["ErrorNumber"] = number;
    answer["ErrorMessage"] = message;
    return JsonResponse(answer);
}

Response ErrorIn(const Transfer &transfer, int number, const std::string &message)
{
    if (!transfer.wantsBytes)
        return Envelope(transfer, ordered_json::object(), number, message);
    return {.contentType = kImageBytesType,
            .body =
                std::make_shared<std::string>(ImageBytesError(number, message, transfer.numbers)),
            .headers = {}};
}

int NumberOf(const Failure &failure)
{
    switch (static_cast<Exit>(failure.Code())) {
    case Exit::kUsage:
        return AlpacaError::kInvalidValue;
    case Exit::kNotSupported:
        return AlpacaError::kNotImplemented;
    case Exit::kCameraLost:
    case Exit::kNoCamera:
        return AlpacaError::kNotConnected;
    case Exit::kBusy:
        return AlpacaError::kInvalidOperation;
    default:
        return AlpacaError::kOther;
    }
}

/// Makes an answer; what goes wrong with the camera is one, too.
template <class Make> Response Guarded(const Transfer &transfer, Make make)
{
    try {
        return make();
    } catch (const AlpacaError &error) {
        return ErrorIn(transfer, error.Code(), error.what());
    } catch (const Failure &failure) {
        return ErrorIn(transfer, NumberOf(failure), failure.what());
    }
}

/// The paths of the camera.
class CameraPaths {
  public:
    CameraPaths(AlpacaDevice &device, JobQueue &jobs) : m_device(device), m_jobs(jobs) {}

    Answer Get(const Request &request)
    {
        const AlpacaParameters parameters(request.query);
        Transfer transfer = Begin(request, parameters);
        const std::string &name = request.captured.at(1);
        if (name == "imagearray" || name == "imagearrayvariant")
            return GetImage(request, transfer);
        const AlpacaMember &member = Find(name);
        if (!member.get)
            throw Refusal(400, fmt::format("{} is done by PUT", name));
        return Guarded(transfer, [&] {
            RequireConnection(member, transfer);
            const ordered_json value = member.get({m_device, transfer.client, parameters});
            return Envelope(transfer, {{"Value", value}});
        });
    }

    Answer Put(const Request &request)
    {
        const Parameters form = ParseForm(request.body);
        const AlpacaParameters parameters(form);
        const Transfer transfer = Begin(request, parameters);
        const AlpacaMember &member = Find(request.captured.at(1));
        if (!member.put)
            throw Refusal(400, fmt::format("{} can only be asked for", member.name));
        Job::Work work;
        Response done = Guarded(transfer, [&] {
            RequireConnection(member, transfer);
            work = member.put({m_device, transfer.client, parameters});
            return Envelope(transfer, ordered_json::object());
        });
        if (!work)
            return done;
        const JobPtr job = m_jobs.Post(std::move(work));
        return Later{.ask = [job, transfer, done]() -> std::optional<Response> {
                         if (!job->IsDone())
                             return std::nullopt;
                         return Guarded(transfer, [&] {
                             job->CheckResult();
                             return done;
                         });
                     },
                     .tooLate =
                         [transfer] {
                             return ErrorIn(transfer, AlpacaError::kOther, "the camera is busy");
                         }};
    }

  private:
    Transfer Begin(const Request &request, const AlpacaParameters &parameters)
    {
        if (request.captured.at(0) != "0")
            throw Refusal(400, fmt::format("there is no camera {}", request.captured.at(0)));
        Transfer transfer;
        transfer.client = parameters.Id("ClientID");
        transfer.numbers = {parameters.Id("ClientTransactionID"), ++m_transactions};
        return transfer;
    }

    static const AlpacaMember &Find(const std::string &name)
    {
        const auto members = AlpacaMembers();
        const auto found = std::ranges::find_if(
            members, [&](const AlpacaMember &member) { return name == member.name; });
        if (found == members.end())
            throw Refusal(400, fmt::format("a camera has no '{}'", name));
        return *found;
    }

    void RequireConnection(const AlpacaMember &member, const Transfer &transfer)
    {
        if (member.needsConnection)
            m_device.RequireConnection(transfer.client);
    }

    /// Where pictures are turned round is not where clients are spoken with.
    Answer GetImage(const Request &request, Transfer transfer)
    {
        transfer.wantsBytes = request.accept.find(kImageBytesType) != std::string::npos;
        return Later{.ask = [this, transfer]() -> std::optional<Response> {
            return Guarded(transfer, [&] { return ImageIn(transfer); });
        }};
    }

    Response ImageIn(const Transfer &transfer)
    {
        m_device.RequireConnection(transfer.client);
        const auto [taken, part] = m_device.With(transfer.client, [](const AlpacaClient &client) {
            return std::pair(client.picture, client.part);
        });
        if (!taken)
            throw AlpacaError(AlpacaError::kInvalidOperation, "there is no image yet");
        const Picture &picture = taken->frame->picture;
        if (transfer.wantsBytes)
            return {.contentType = kImageBytesType,
                    .body = std::make_shared<std::string>(
                        ImageBytesOf(picture, part, transfer.numbers)),
                    .headers = {}};
        const std::string numbers = *Envelope(transfer, ordered_json::object()).body;
        return {.contentType = "application/json",
                .body = std::make_shared<std::string>('{' + ImageJsonOf(picture, part) + ',' +
                                                      numbers.substr(1)),
                .headers = {}};
    }

    AlpacaDevice &m_device;
    JobQueue &m_jobs;
    std::atomic<uint32_t> m_transactions{0};
};

/// What is asked before anybody knows of a camera.
void AddManagement(Router &router, const std::string &model, const std::string &uniqueId)
{
    const auto add = [&router](const char *path, const ordered_json &value) {
        router.Add({"GET", path, [value](const Request &request) {
                        const AlpacaParameters parameters(request.query);
                        const uint32_t id = parameters.Id("ClientTransactionID");
                        return Envelope({.client = 0, .numbers = {id, 0}}, {{"Value", value}});
                    }});
    };
    add("/management/apiversions", ordered_json::array({1}));
    add("/management/v1/description", {{"ServerName", "vsccam"},
                                       {"Manufacturer", "The vsccam developers"},
                                       {"ManufacturerVersion", VSCCAM_VERSION},
                                       {"Location", ""}});
    add("/management/v1/configureddevices", ordered_json::array({{{"DeviceName", model},
                                                                  {"DeviceType", "Camera"},
                                                                  {"DeviceNumber", 0},
                                                                  {"UniqueID", uniqueId}}}));
}

} // namespace

void AddAlpacaApi(Router &router, AlpacaDevice &device, JobQueue &jobs, const std::string &uniqueId)
{
    const auto paths = std::make_shared<CameraPaths>(device, jobs);
    constexpr const char *kCamera = "/api/v1/camera/{number}/{member}";
    router.Add({"GET", kCamera, [paths](const Request &r) { return paths->Get(r); }});
    router.Add({"PUT", kCamera, [paths](const Request &r) { return paths->Put(r); }});
    AddManagement(router, device.Facts().model, uniqueId);
    // What there is to be set is set on the page.
    for (const char *path : {"/setup", "/setup/v1/camera/0/setup"})
        router.Add({"GET", path, [](const Request &) {
                        return Response{.status = 302, .body = {}, .headers = {{"Location", "/"}}};
                    }});
}

} // namespace vsctool::serve
