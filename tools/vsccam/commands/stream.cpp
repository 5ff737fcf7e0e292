#include "commands/command.h"
#include "failure.h"
#include "video/output_stream.h"
#include "video/video_options.h"
#include "video/yuv.h"

#include <unistd.h>

#include <cmath>
#include <memory>
#include <utility>
#include <vector>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

struct StreamOptions {
    VideoOptions video;
    bool raw = false;
    std::optional<double> rate; // nothing: to be measured
};

// What the rate is measured with
constexpr Microseconds kMeasuredTime = 500ms;
constexpr size_t kMostMeasured = 16; // frames
constexpr double kRateOfOneFrame = 1;

/// Y4M names for what is in a frame; ffmpeg knows all of them.
const char *ColourSpaceOf(PixelFormat format)
{
    switch (format) {
    case PixelFormat::kRgb24:
        return "444";
    case PixelFormat::kRaw16:
        return "mono16";
    case PixelFormat::kRaw8:
    case PixelFormat::kY8:
        break;
    }
    return "mono";
}

/// Gives the frames to the reader of standard output.
class StreamSink : public FrameSink {
  public:
    StreamSink(int descriptor, const StreamOptions &options)
        : m_out(descriptor), m_format(static_cast<PixelFormat>(getImgType())), m_bare(options.raw),
          m_rate(options.rate)
    {
    }

    bool ReaderIsGone() const { return m_out.ReaderIsGone(); }

    void Abandon() override { m_out.Abandon(); }

    void Put(const TimedFrame &frame) override
    {
        if (m_bare)
            return m_out.Write(frame.bytes);
        if (m_rate)
            return Write(frame.bytes);
        m_held.emplace_back(frame.bytes.begin(), frame.bytes.end());
        m_firstAt = m_held.size() == 1 ? frame.at : m_firstAt;
        m_span = frame.at - m_firstAt;
        if (m_held.size() == kMostMeasured || m_span >= kMeasuredTime)
            WriteHeld();
    }

    void End() override
    {
        if (!m_held.empty())
            WriteHeld();
    }

  private:
    /// The header tells the rate, which nobody knows before some frames have come.
    void WriteHeld()
    {
        const auto intervals = static_cast<double>(m_held.size() - 1);
        m_rate = m_span > 0us ? intervals / Seconds(m_span) : kRateOfOneFrame;
        for (const std::vector<uint8_t> &bytes : std::exchange(m_held, {}))
            Write(bytes);
    }

    void Write(std::span<const uint8_t> bytes)
    {
        if (!std::exchange(m_begun, true))
            m_out.Write(fmt::format("YUV4MPEG2 W{} H{} F{}:1000 Ip A1:1 C{}\n", getWidth(),
                                    getHeight(), std::lround(*m_rate * 1000),
                                    ColourSpaceOf(m_format)));
        m_out.Write("FRAME\n");
        if (m_format != PixelFormat::kRgb24)
            return m_out.Write(bytes);
        ToYuv444(bytes, m_planes);
        m_out.Write(m_planes);
    }

    OutputStream m_out;
    const PixelFormat m_format;
    const bool m_bare;
    std::optional<double> m_rate;
    std::vector<std::vector<uint8_t>> m_held; // until the rate is known
    UtcTime m_firstAt;
    Microseconds m_span{}; // from the first to the last of them
    bool m_begun = false;
    std::vector<uint8_t> m_planes;
};

void TellAboutColour(const Camera &camera, const StreamOptions &options, Console &console)
{
    if (!options.raw && camera.PictureMosaic())
        console.Note("the mosaic of the sensor goes out as it is, in grey; --format rgb24 makes "
                     "colours of it");
}

void RunVideo(Camera &camera, const StreamOptions &options, Context &context)
{
    const Microseconds exposure =
        Prepare(camera, options.video.settings, UsualVideoExposure(), context.console);
    TellAboutColour(camera, options, context.console);
    StreamSink sink(context.console.ResultsDescriptor(), options);
    VideoSession session(camera, context, options.video.plan, sink);
    const VideoResult result =
        session.Run(exposure, [](const VideoState &state) { return InWords(state); });
    context.console.Note(InWords(result));
    if (sink.ReaderIsGone())
        context.console.Note("the reader of the video has gone");
    else if (result.end)
        std::rethrow_exception(result.end);
}

void Stream(const StreamOptions &options, Context &context)
{
    CheckSettings(options.video.settings);
    if (context.console.InJson())
        throw Failure(Exit::kUsage, "standard output is the video; there is no room for --json");
    if (isatty(context.console.ResultsDescriptor()) == 1)
        throw Failure(Exit::kUsage, "a terminal shows no video; add for example '| ffplay -'");
    Camera camera(context.camera);
    WorkAtTemperature(camera, options.video.settings, context.console,
                      [&] { RunVideo(camera, options, context); });
}

} // namespace

void AddStreamCommand(CLI::App &app, Command &chosen)
{
    CLI::App *stream =
        app.add_subcommand("stream", "Write video to standard output, for another program");
    const auto options = std::make_shared<StreamOptions>();
    StreamOptions &o = *options;
    o.video.plan.finishes = false; // the reader may have stopped, too
    AddVideoOptions(*stream, o.video);
    stream->add_option("--frames", o.video.plan.limits.frames, "End after so many frames")
        ->check(CLI::Range(1, INT32_MAX));
    AddBufferOption(*stream, o.video.plan);
    CLI::Option *raw =
        stream->add_flag("--raw", o.raw, "The bare frames, not Y4M, which tells size and rate");
    stream
        ->add_option("--rate", o.rate, "Frames per second to tell (default: as measured at first)")
        ->excludes(raw)
        ->check(CLI::Range(0.001, 100'000.0));
    stream->footer("vsccam stream -e 20ms --format rgb24 | ffplay -");
    stream->callback([&chosen, options] {
        chosen = [options](Context &context) { Stream(*options, context); };
    });
}

} // namespace vsctool
