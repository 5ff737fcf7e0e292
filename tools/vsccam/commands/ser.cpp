#include "commands/command.h"
#include "failure.h"
#include "ser/file.h"

#include <nlohmann/json.hpp>

#include <charconv>
#include <memory>

namespace vsctool {
namespace {

using nlohmann::ordered_json;

/// Frames as people number them, from 1 on.
struct FrameSpan {
    int64_t first = 0;
    int64_t last = 0;
};

struct SplitOptions {
    std::string file;
    std::optional<FrameSpan> frames;
    std::optional<int64_t> mib;
    std::string output;
    bool overwrite = false;
};

FrameSpan ParseFrames(const std::string &text)
{
    FrameSpan span;
    const char *end = text.data() + text.size();
    const auto first = std::from_chars(text.data(), end, span.first);
    const std::string_view rest(first.ptr, end);
    if (first.ec == std::errc() && rest.starts_with("..")) {
        const auto last = std::from_chars(first.ptr + 2, end, span.last);
        if (last.ec == std::errc() && last.ptr == end && span.first > 0 && span.last >= span.first)
            return span;
    }
    throw Failure(Exit::kUsage,
                  fmt::format("'{}' names no frames; write 1..100 for the first hundred", text));
}

std::string Joined(const std::vector<std::string> &sentences)
{
    std::string all;
    for (const std::string &sentence : sentences)
        all += (all.empty() ? "" : "; ") + sentence;
    return all;
}

void SayWhatIsIn(const SerFile &file, const std::optional<SerTiming> &timing, Console &console)
{
    const SerHeader &header = file.Header();
    console.Say(fmt::format("{}  {} x {}  {} bits  {}  {} frames", file.Disk().Path().string(),
                            header.width, header.height, header.bits, SerColourName(header.colour),
                            file.Frames()));
    for (const auto &[name, text] : {std::pair{"instrument", header.instrument},
                                     {"observer", header.observer},
                                     {"telescope", header.telescope}})
        if (!text.empty())
            console.Say(fmt::format("  {:<10}  {}", name, text));
    console.Say(fmt::format("  began       {} UTC", FormatSerTicks(header.utcTime)));
    if (!timing) {
        console.Say("  times       none of the frames");
        return;
    }
    console.Say(fmt::format("  frames from {} to {} UTC, one in {:.4f} s",
                            FormatSerTicks(timing->first), FormatSerTicks(timing->last),
                            timing->meanS));
    console.Say(fmt::format("  gaps        {} (of more than 1.5 times that), the longest of "
                            "{:.4f} s behind frame {}",
                            timing->gaps, timing->longestS, timing->longestAfter));
}

ordered_json AsJson(const SerFile &file, const std::optional<SerTiming> &timing)
{
    const SerHeader &header = file.Header();
    ordered_json json = {{"file", file.Disk().Path().string()},
                         {"width", header.width},
                         {"height", header.height},
                         {"bits", header.bits},
                         {"colour", SerColourName(header.colour)},
                         {"frames", file.Frames()},
                         {"frames_told", header.frames},
                         {"times", file.Times()},
                         {"instrument", header.instrument},
                         {"observer", header.observer},
                         {"telescope", header.telescope},
                         {"utc", FormatSerTicks(header.utcTime)}};
    if (timing) {
        json["first_utc"] = FormatSerTicks(timing->first);
        json["last_utc"] = FormatSerTicks(timing->last);
        json["mean_gap_s"] = timing->meanS;
        json["longest_gap_s"] = timing->longestS;
        json["longest_gap_behind"] = timing->longestAfter;
        json["gaps"] = timing->gaps;
    }
    json["faults"] = file.Faults();
    return json;
}

void Info(const std::string &name, Console &console)
{
    const SerFile file(name);
    const std::optional<SerTiming> timing = TimingOf(file);
    SayWhatIsIn(file, timing, console);
    console.Emit(AsJson(file, timing));
    if (const std::vector<std::string> faults = file.Faults(); !faults.empty())
        throw Failure(Exit::kFile, fmt::format("{}: {}. 'vsccam ser repair {}' sets it right", name,
                                               Joined(faults), name));
}

void Repair(const std::string &name, Console &console)
{
    const SerRepair repair = RepairSer(name);
    std::vector<std::string> done = {fmt::format("{} frames", repair.frames)};
    if (repair.countBefore != repair.frames)
        done.push_back(fmt::format("the header told {}", repair.countBefore));
    if (repair.bytesCut > 0)
        done.push_back(fmt::format("{} bytes that are no frame were cut off", repair.bytesCut));
    if (repair.timesRecovered > 0)
        done.push_back(fmt::format("{} times were beside the file", repair.timesRecovered));
    if (repair.timesEstimated > 0)
        done.push_back(fmt::format("{} times were estimated", repair.timesEstimated));
    if (done.size() == 1)
        done.emplace_back("nothing was wrong");
    console.Say(fmt::format("{}  {}", name, Joined(done)));
    console.Emit({{"file", name},
                  {"frames", repair.frames},
                  {"frames_told", repair.countBefore},
                  {"bytes_cut", repair.bytesCut},
                  {"times_recovered", repair.timesRecovered},
                  {"times_estimated", repair.timesEstimated}});
}

/// "moon.ser" and "_001" make "moon_001.ser".
std::filesystem::path Beside(const std::filesystem::path &file, const std::string &mark)
{
    return file.parent_path() / (file.stem().string() + mark + file.extension().string());
}

/// Copies frames, numbered from 0.
void CopyPart(const SerFile &file, FrameSpan part, const std::filesystem::path &to,
              const SplitOptions &options, Console &console)
{
    if (!options.overwrite)
        RequireFree(to);
    CopyFrames(file, part.first, part.last, to);
    const int64_t frames = part.last - part.first + 1;
    console.Say(fmt::format("{}  {} frames", to.string(), frames));
    console.Emit({{"file", to.string()}, {"frames", frames}, {"first_frame", part.first + 1}});
}

void SplitBySize(const SerFile &file, const SplitOptions &options, Console &console)
{
    const int64_t bytes = (*options.mib << 20) - static_cast<int64_t>(kSerHeaderBytes);
    const int64_t perPart = bytes / (file.FrameBytes() + static_cast<int64_t>(kSerTimeBytes));
    if (perPart < 1)
        throw Failure(Exit::kUsage,
                      fmt::format("{} MiB hold no frame of {}", *options.mib, options.file));
    const std::string base = options.output.empty() ? options.file : options.output;
    int part = 0;
    for (int64_t first = 0; first < file.Frames(); first += perPart)
        CopyPart(file, {first, std::min(first + perPart, file.Frames()) - 1},
                 Beside(base, fmt::format("_{:03}", ++part)), options, console);
}

void Split(const SplitOptions &options, Console &console)
{
    if (!options.frames && !options.mib)
        throw Failure(Exit::kUsage, "add --frames 1..100, or --size 2000 for parts of so many MiB");
    const SerFile file(options.file);
    if (const std::vector<std::string> faults = file.Faults(); !faults.empty())
        console.Note(fmt::format("{}: {}", options.file, Joined(faults)));
    if (options.mib)
        return SplitBySize(file, options, console);
    const FrameSpan frames = *options.frames;
    if (frames.last > file.Frames())
        throw Failure(Exit::kUsage, fmt::format("{} has {} frames", options.file, file.Frames()));
    const std::filesystem::path to =
        options.output.empty()
            ? Beside(options.file, fmt::format("_{}-{}", frames.first, frames.last))
            : std::filesystem::path(options.output);
    CopyPart(file, {frames.first - 1, frames.last - 1}, to, options, console);
}

/// A command of one file.
void AddOfFile(CLI::App &ser, Command &chosen, const char *name, const char *help,
               void (*run)(const std::string &file, Console &console))
{
    CLI::App *command = ser.add_subcommand(name, help);
    const auto file = std::make_shared<std::string>();
    command->add_option("file", *file, "The file")->required();
    command->footer(fmt::format("vsccam ser {} moon.ser", name));
    command->callback([&chosen, file, run] {
        chosen = [file, run](Context &context) { run(*file, context.console); };
    });
}

void AddSplit(CLI::App &ser, Command &chosen)
{
    CLI::App *split = ser.add_subcommand("split", "Copy some frames, or all in parts");
    const auto options = std::make_shared<SplitOptions>();
    SplitOptions &o = *options;
    split->add_option("file", o.file, "The file")->required();
    CLI::Option *frames = AddParsed(*split, "--frames", o.frames, ParseFrames, "A..B",
                                    "These frames, counted from 1");
    split->add_option("--size", o.mib, "All, in parts of so many MiB at most")
        ->type_name("MIB")
        ->check(CLI::Range(int64_t{1}, int64_t{1} << 30).description(""))
        ->excludes(frames);
    split->add_option("-o,--output", o.output,
                      "File; those of parts are numbered (default: beside the file)");
    split->add_flag("--overwrite", o.overwrite, "Replace files that exist");
    split->footer("vsccam ser split moon.ser --frames 500..1500 -o best.ser");
    split->callback([&chosen, options] {
        chosen = [options](Context &context) { Split(*options, context.console); };
    });
}

} // namespace

void AddSerCommand(CLI::App &app, Command &chosen)
{
    CLI::App *ser = app.add_subcommand("ser", "Look at, repair and split SER files");
    ser->require_subcommand(1);
    AddOfFile(*ser, chosen, "info", "Show what is in a file, and what is wrong with it", Info);
    AddOfFile(*ser, chosen, "repair",
              "Set the count of frames by what is there, cut off half a frame, and give the frames "
              "their times: those that the recording left beside the file, or estimates",
              Repair);
    AddSplit(*ser, chosen);
    ser->footer("vsccam ser info moon.ser");
    for (CLI::App *command : ser->get_subcommands({}))
        command->fallthrough(); // global options may follow
}

} // namespace vsctool
