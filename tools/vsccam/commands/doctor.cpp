#include "commands/command.h"
#include "doctor/checks.h"
#include "doctor/live.h"
#include "failure.h"
#include "library_lines.h"
#include "temporary_file.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <memory>

namespace vsctool {
namespace {

using nlohmann::ordered_json;

struct DoctorOptions {
    bool live = false;
    std::string folder = ".";
    std::string report;
};

ordered_json AsJson(const Finding &finding)
{
    ordered_json json = {{"id", finding.id}};
    if (!finding.port.empty())
        json["camera"] = "usb:" + finding.port;
    json["result"] = Word(finding.verdict);
    json["found"] = finding.found;
    if (!finding.remedy.empty())
        json["remedy"] = finding.remedy;
    return json;
}

std::string InWords(const Finding &finding)
{
    std::string line = fmt::format("{:<4}  {:<12}  {}{}", Word(finding.verdict), finding.id,
                                   finding.port.empty() ? "" : finding.port + ": ", finding.found);
    return finding.remedy.empty() ? line : fmt::format("{}\n      try: {}", line, finding.remedy);
}

/// Versions and devices are among the findings, and all that the library said stands behind them.
/// Of the user and the machine's name it tells nothing but the folder that was asked for.
void WriteReport(const std::filesystem::path &path, ordered_json result)
{
    ordered_json messages = ordered_json::array();
    const std::vector<LibraryLine> lines = LibraryLines::Kept();
    for (const LibraryLine &line : lines)
        messages.push_back(fmt::format(
            "{:8.3f} {}", std::chrono::duration<double>(line.at - lines.front().at).count(),
            line.text));
    result["library_messages"] = messages;
    TemporaryFile temporary(path);
    errno = 0;
    std::ofstream file(temporary.Path());
    file << result.dump(2, ' ', false, ordered_json::error_handler_t::replace) << '\n';
    file.close();
    if (!file)
        throw CannotWrite(path);
    temporary.Commit();
}

void Doctor(const DoctorOptions &options, Context &context)
{
    if (!options.report.empty())
        LibraryLines::Keep();
    std::vector<Finding> findings = Examine(ReadFacts(options.folder));
    if (options.live)
        std::ranges::move(ExamineLive(context), std::back_inserter(findings));
    ordered_json checks = ordered_json::array();
    for (const Finding &finding : findings) {
        context.console.Say(InWords(finding));
        checks.push_back(AsJson(finding));
    }
    const auto failed = std::ranges::count(findings, Verdict::kFail, &Finding::verdict);
    const ordered_json result = {{"checks", checks}, {"failed", failed}};
    context.console.Emit(result);
    if (!options.report.empty())
        WriteReport(options.report, result);
    if (failed > 0)
        throw Failure(Exit::kUnhealthy,
                      fmt::format("{} of {} checks failed", failed, findings.size()));
}

} // namespace

void AddDoctorCommand(CLI::App &app, Command &chosen)
{
    CLI::App *doctor =
        app.add_subcommand("doctor", "Check cameras and machine, and tell what mends them");
    doctor->footer("vsccam doctor --live --report report.json");
    const auto options = std::make_shared<DoctorOptions>();
    doctor->add_flag("--live", options->live, "Open a camera, too, and take ten frames");
    doctor->add_option("-o,--output", options->folder, "Folder that pictures are to be written in")
        ->type_name("FOLDER");
    doctor->add_option("--report", options->report, "Write the result to a file, for a bug report")
        ->type_name("FILE");
    doctor->callback([&chosen, options] {
        chosen = [options](Context &context) { Doctor(*options, context); };
    });
}

} // namespace vsctool
