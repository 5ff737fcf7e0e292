#include "serve/alpaca/device.h"

#include "failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

namespace vsctool::serve {
namespace {

constexpr size_t kMostClients = 64;
constexpr int kWidthStep = 8; // of frames, in binned pixels
constexpr int kHeightStep = 2;
constexpr int kStartStep = 16; // at which every model begins a region as asked

constexpr int Down(int value, int step)
{
    return value / step * step;
}

constexpr int Up(int value, int step)
{
    return Down(value + step - 1, step);
}

/// The camera delivers no others: what is around the region is cut off afterwards.
Region Around(const Region &asked)
{
    Region region;
    region.x = Down(asked.x, kStartStep);
    region.y = Down(asked.y, kStartStep);
    region.width = Up(asked.x + asked.width - region.x, kWidthStep);
    region.height = Up(asked.y + asked.height - region.y, kHeightStep);
    return region;
}

int CommonBin(const std::vector<int> &bins)
{
    return std::accumulate(bins.begin(), bins.end(), 1,
                           [](int all, int bin) { return std::lcm(all, bin); });
}

} // namespace

AlpacaDevice::AlpacaDevice(CameraWorks &works, JobQueue &jobs) : m_works(works), m_jobs(jobs)
{
    const CameraFacts &facts = works.Facts();
    const int bin = CommonBin(facts.bins);
    m_width = Down(facts.width, kWidthStep * bin);
    m_height = Down(facts.height, kHeightStep * bin);
}

AlpacaClient &AlpacaDevice::Of(uint32_t id)
{
    auto found = m_clients.find(id);
    if (found == m_clients.end() && id == 0 && !m_clients.empty())
        found = std::ranges::max_element(m_clients, {},
                                         [](const auto &entry) { return entry.second.turn; });
    if (found == m_clients.end()) {
        Forget();
        AlpacaClient client;
        client.region = {m_width, m_height, 0, 0};
        found = m_clients.emplace(id, client).first;
    }
    found->second.turn = ++m_turn;
    return found->second;
}

/// Makes room for another client, if need be.
void AlpacaDevice::Forget()
{
    if (m_clients.size() < kMostClients)
        return;
    m_clients.erase(std::ranges::min_element(m_clients, {}, [](const auto &entry) {
        return std::pair(entry.second.connected || entry.second.exposing, entry.second.turn);
    }));
}

void AlpacaDevice::Connect(uint32_t id, bool connect)
{
    bool isFirst = false;
    {
        const std::lock_guard lock(m_mutex);
        isFirst = std::ranges::none_of(m_clients,
                                       [](const auto &entry) { return entry.second.connected; });
        if (connect && !m_clients.contains(id)) { // it is somebody of its own
            Forget();
            m_clients[id].region = {m_width, m_height, 0, 0};
        }
        Of(id).connected = connect;
    }
    if (connect && isFirst) // exposures need not wait for its end; the page can switch it on again
        (void)m_jobs.Post([](CameraWorks &works) { works.PauseVideo(); });
}

bool AlpacaDevice::IsConnected(uint32_t id)
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_clients.find(id);
    return found == m_clients.end() ? id == 0 && !m_clients.empty() && Of(id).connected
                                    : found->second.connected;
}

void AlpacaDevice::RequireConnection(uint32_t id)
{
    if (!IsConnected(id))
        throw AlpacaError(AlpacaError::kNotConnected, "connect first");
    if (!m_works.Now()->present)
        throw AlpacaError(AlpacaError::kNotConnected,
                          fmt::format("{} is gone; check plug and power", Facts().model));
}

Job::Work AlpacaDevice::StartExposure(uint32_t id, double seconds, bool light)
{
    const CameraFacts &facts = Facts();
    if (!(seconds >= 0 && seconds <= Seconds(facts.longestExposure)))
        throw AlpacaError(AlpacaError::kInvalidValue,
                          fmt::format("Duration is 0 to {} s", Seconds(facts.longestExposure)));
    const AlpacaClient client = With(id, [](const AlpacaClient &known) { return known; });
    const Region &asked = client.region;
    const bool fits = asked.x >= 0 && asked.y >= 0 && asked.width > 0 && asked.height > 0 &&
                      asked.width <= m_width / client.bin - asked.x &&
                      asked.height <= m_height / client.bin - asked.y;
    if (!fits)
        throw AlpacaError(
            AlpacaError::kInvalidValue,
            fmt::format("{} x {} pixels from {}, {} do not fit; the sensor has {} x {} "
                        "at BinX {}",
                        asked.width, asked.height, asked.x, asked.y, m_width / client.bin,
                        m_height / client.bin, client.bin));
    SeriesPlan plan;
    plan.exposure =
        std::max(Microseconds(static_cast<int64_t>(seconds * 1e6 + 0.5)), facts.shortestExposure);
    plan.framing = {.bin = client.bin, .format = client.format, .region = Around(asked)};
    plan.type = light ? "light" : "dark";
    plan.report = [this, id, asked](std::shared_ptr<const TakenPicture> picture,
                                    const std::string &failure) {
        Took(id, asked, std::move(picture), failure);
    };
    return [this, id, plan](CameraWorks &works) {
        works.StartSeries(plan);
        With(id, [](AlpacaClient &known) {
            known.picture.reset();
            known.failure.clear();
            known.exposing = true;
        });
    };
}

Job::Work AlpacaDevice::AbortExposure(uint32_t id)
{
    return [this, id](CameraWorks &works) {
        if (With(id, [](const AlpacaClient &client) { return client.exposing; }))
            works.AbortSeries();
    };
}

/// Where in a picture that lies what was asked for. A mirrored one begins at the other end.
Region AlpacaDevice::PartOf(const TakenPicture &picture, const Region &asked)
{
    bool flipX = false;
    bool flipY = false;
    GetMisc(&flipX, &flipY);
    const Picture &whole = picture.frame->picture;
    Region part = asked;
    part.x -= picture.facts.startX;
    part.y -= picture.facts.startY;
    if (flipX)
        part.x = whole.width - part.x - part.width;
    if (flipY)
        part.y = whole.height - part.y - part.height;
    return part;
}

void AlpacaDevice::Took(uint32_t id, const Region &asked,
                        std::shared_ptr<const TakenPicture> picture, const std::string &failure)
{
    With(id, [&](AlpacaClient &client) {
        client.exposing = false;
        client.failure = failure == kAborted ? "" : failure;
        if (!picture)
            return;
        const Picture &whole = picture->frame->picture;
        const Region part = PartOf(*picture, asked);
        if (part.x < 0 || part.y < 0 || part.x + part.width > whole.width ||
            part.y + part.height > whole.height) {
            client.failure = "the camera has moved the region";
            return;
        }
        client.part = part;
        client.picture = std::move(picture);
    });
}

} // namespace vsctool::serve
