#include "serve/picture_routes.h"

#include "serve/live_picture.h"

#include <fmt/format.h>

#include <atomic>
#include <charconv>
#include <chrono>

namespace vsctool::serve {
namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 5s; // for a newer frame; exposures may take longer
constexpr int kMostPlayers = 4;
constexpr const char *kBoundary = "next-picture";

template <class Number> Number ToNumber(const std::string &name, std::string_view text)
{
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        throw Refusal(400, fmt::format("{}: '{}' is no number", name, text));
    return number;
}

/// "0.1,0.5,1"
template <class Number, size_t kCount>
std::array<Number, kCount> ToNumbers(const std::string &name, std::string_view text)
{
    std::array<Number, kCount> numbers{};
    for (size_t i = 0; i < kCount; ++i) {
        const size_t end = i + 1 < kCount ? text.find(',') : text.size();
        if (end == std::string_view::npos)
            throw Refusal(400, fmt::format("{} wants {} numbers", name, kCount));
        numbers.at(i) = ToNumber<Number>(name, text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return numbers;
}

std::optional<Stretch> ToStretch(const std::string &text)
{
    if (text == "auto")
        return std::nullopt;
    if (text == "linear")
        return Stretch{};
    const auto [black, midtone, white] = ToNumbers<double, 3>("stretch", text);
    const bool inOrder = 0 <= black && black < white && white <= 1;
    if (!inOrder || !(midtone > 0 && midtone < 1))
        throw Refusal(400, "stretch: black, midtone, white lie between 0 and 1, white above black");
    return Stretch{black, midtone, white};
}

PictureWish::Size ToSize(const std::string &text)
{
    if (text == "half")
        return PictureWish::Size::kHalf;
    if (text == "full")
        return PictureWish::Size::kFull;
    if (text == "quarter")
        return PictureWish::Size::kQuarter;
    throw Refusal(400, "size is full, half or quarter");
}

PictureWish WishOf(const Parameters &query)
{
    PictureWish wish;
    if (const auto size = Find(query, "size"))
        wish.size = ToSize(*size);
    if (const auto stretch = Find(query, "stretch"))
        wish.stretch = ToStretch(*stretch);
    if (const auto loupe = Find(query, "loupe")) {
        const auto [x, y] = ToNumbers<uint16_t, 2>("loupe", *loupe);
        wish.loupe = {x, y};
    }
    return wish;
}

Answer FrameAnswer(const Request &request, const LatestFrame &frames,
                   const std::shared_ptr<LivePictures> &pictures)
{
    const auto after = ToNumber<uint64_t>("after", Find(request.query, "after").value_or("0"));
    const auto ask = [&frames, pictures, after,
                      wish = WishOf(request.query)]() -> std::optional<Response> {
        const FramePtr frame = frames.After(after);
        if (!frame)
            return std::nullopt;
        const auto picture = pictures->Of(frame, wish);
        return Response{.contentType = "image/jpeg",
                        .body = Body(picture, &picture->jpeg),
                        .headers = {{"Vsccam-Frame", picture->facts}}};
    };
    return Later{.ask = ask, .patience = kPatience, .tooLate = [] {
                     return Response{.status = 204, .contentType = "", .body = {}, .headers = {}};
                 }};
}

/// One picture after the other, each when the one of before was sent.
class Film {
  public:
    Film(const LatestFrame &frames, std::shared_ptr<LivePictures> pictures,
         std::shared_ptr<std::atomic<int>> players)
        : m_frames(frames), m_pictures(std::move(pictures)), m_players(std::move(players))
    {
        ++*m_players;
    }
    ~Film() { --*m_players; }
    Film(const Film &) = delete;
    Film &operator=(const Film &) = delete;

    std::optional<Body> Next()
    {
        const FramePtr frame = m_frames.After(m_shown);
        if (!frame)
            return std::nullopt;
        m_shown = frame->sequence;
        const std::string &jpeg = m_pictures->Of(frame, {})->jpeg;
        return std::make_shared<const std::string>(
            fmt::format("--{}\r\nContent-Type: image/jpeg\r\nContent-Length: {}\r\n\r\n{}\r\n",
                        kBoundary, jpeg.size(), jpeg));
    }

  private:
    const LatestFrame &m_frames;
    const std::shared_ptr<LivePictures> m_pictures;
    const std::shared_ptr<std::atomic<int>> m_players;
    uint64_t m_shown = 0;
};

} // namespace

void AddPictureRoutes(Router &router, const LatestFrame &frames)
{
    const auto pictures = std::make_shared<LivePictures>();
    const auto players = std::make_shared<std::atomic<int>>(0);
    router.Add({"GET", "/api/frame", [&frames, pictures](const Request &request) {
                    return FrameAnswer(request, frames, pictures);
                }});
    router.Add({"GET", "/live.mjpg", [&frames, pictures, players](const Request &) -> Answer {
                    if (*players >= kMostPlayers)
                        throw Refusal(503, "there are as many players as there may be");
                    const auto film = std::make_shared<Film>(frames, pictures, players);
                    return Stream{fmt::format("multipart/x-mixed-replace; boundary={}", kBoundary),
                                  [film] { return film->Next(); }};
                }});
}

} // namespace vsctool::serve
