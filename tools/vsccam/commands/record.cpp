#include "commands/command.h"
#include "failure.h"
#include "ser/writer.h"
#include "video/ser_header.h"
#include "video/video_options.h"

#include <memory>
#include <system_error>

namespace vsctool {
namespace {

struct RecordOptions {
    VideoOptions video;
    std::string file = "video.ser";
    std::string observer;
    std::string telescope;
    bool overwrite = false;
};

/// Writes a video to its file.
class SerSink : public FrameSink {
  public:
    explicit SerSink(SerWriter &writer) : m_writer(writer) {}
    void Put(const TimedFrame &frame) override { m_writer.Add(frame.bytes, frame.at); }
    void Idle() override { m_writer.Checkpoint(); }

  private:
    SerWriter &m_writer;
};

SerHeader HeaderOf(const Camera &camera, const RecordOptions &options)
{
    SerHeader header = SerHeaderOf(camera);
    header.observer = options.observer;
    header.telescope = options.telescope;
    return header;
}

std::string DiskLeft(const std::filesystem::path &file)
{
    constexpr double kGiB = 1 << 30;
    std::error_code unknown;
    const auto space = std::filesystem::space(file, unknown);
    return unknown
               ? ""
               : fmt::format("  disk {:.1f} GiB left", static_cast<double>(space.available) / kGiB);
}

/// One run of the command.
class Recording {
  public:
    Recording(const RecordOptions &options, Context &context)
        : m_options(options), m_context(context), m_camera(context.camera)
    {
    }

    void Run()
    {
        WorkAtTemperature(m_camera, m_options.video.settings, m_context.console,
                          [this] { Record(); });
    }

  private:
    void Record()
    {
        const Microseconds exposure =
            Prepare(m_camera, m_options.video.settings, UsualVideoExposure(), m_context.console);
        SerWriter writer(m_options.file, HeaderOf(m_camera, m_options), m_options.overwrite);
        SerSink sink(writer);
        VideoSession session(m_camera, m_context, m_options.video.plan, sink);
        VideoResult result = session.Run(exposure, [this](const VideoState &state) {
            return fmt::format("{}  buffer {:.0f} %{}", InWords(state), state.BufferPercent(),
                               DiskLeft(m_options.file));
        });
        Close(writer, result);
        result.state.frames = writer.Frames();
        if (writer.Frames() > 0)
            Report(result);
        if (result.end)
            std::rethrow_exception(result.end);
    }

    /// A recording that failed is closed as well; why it failed is what the user has to know.
    static void Close(SerWriter &writer, VideoResult &result)
    {
        try {
            writer.Close();
        } catch (const Failure &) {
            result.end = result.end ? result.end : std::current_exception();
        }
    }

    void Report(const VideoResult &result)
    {
        m_context.console.Say(fmt::format("{}  {}  buffer {:.0f} % at most", m_options.file,
                                          InWords(result), result.state.MostBufferPercent()));
        nlohmann::ordered_json json = {{"file", m_options.file}};
        json.update(AsJson(result));
        json["buffer_percent"] = result.state.MostBufferPercent();
        if (m_context.simulated)
            json["simulated"] = true;
        m_context.console.Emit(json);
    }

    const RecordOptions &m_options;
    Context &m_context;
    Camera m_camera;
};

void Record(const RecordOptions &options, Context &context)
{
    CheckSettings(options.video.settings);
    if (!options.overwrite) // not only when the sensor has become cold
        RequireFree(options.file);
    Recording(options, context).Run();
}

} // namespace

void AddRecordCommand(CLI::App &app, Command &chosen)
{
    CLI::App *record = app.add_subcommand("record", "Record video into a SER file");
    const auto options = std::make_shared<RecordOptions>();
    RecordOptions &o = *options;
    AddVideoOptions(*record, o.video);
    record->add_option("--frames", o.video.plan.limits.frames, "End after so many frames")
        ->check(CLI::Range(1, INT32_MAX));
    AddBufferOption(*record, o.video.plan);
    record
        ->add_option("--max-drops", o.video.plan.mostDropped,
                     "End with code 8 when more frames than this are dropped")
        ->check(CLI::NonNegativeNumber);
    record->add_option("-o,--output", o.file, "File; it can be read while it grows")
        ->capture_default_str();
    record->add_flag("--overwrite", o.overwrite, "Replace a file that exists");
    record->add_option("--observer", o.observer, "Who observes: 40 bytes at most");
    record->add_option("--telescope", o.telescope, "With what: 40 bytes at most");
    record->footer(
        "vsccam record -e 5ms --gain 250 --roi 640x480+640+300 --duration 60s -o moon.ser");
    record->callback([&chosen, options] {
        chosen = [options](Context &context) { Record(*options, context); };
    });
}

} // namespace vsctool
