#include "console.h"

#include "failure.h"

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <unistd.h>
#include <vsccam.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace vsctool {
namespace {

constexpr int kSchema = 1;

/// The log file; nothing without a name. A pipe that nobody reads stops nothing: it is refused, or
/// loses lines when it is full.
std::FILE *OpenLog(const std::string &name)
{
    const int descriptor =
        name.empty()
            ? -1
            : open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0644);
    if (descriptor < 0 && !name.empty())
        throw Failure(Exit::kFile, fmt::format("cannot write the log {}: {}", name,
                                               std::generic_category().message(errno)));
    return descriptor < 0 ? nullptr : fdopen(descriptor, "a");
}

/// Each line at once: readers of a pipe get every result when it is there.
bool WriteLine(std::FILE *file, const std::string &line)
{
    return std::fputs((line + "\n").c_str(), file) != EOF && std::fflush(file) != EOF;
}

} // namespace

Console::Console(const ConsoleOptions &options)
    : m_options(options), m_isTerminal(isatty(STDERR_FILENO) == 1),
      m_resultsOnTerminal(isatty(STDOUT_FILENO) == 1)
{
    m_log.reset(OpenLog(options.logFile));
    std::fflush(stdout);
    m_results.reset(fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "w"));
    if (!m_results)
        throw Failure(Exit::kFile, "standard output is closed");
    const int nobody = -1;
    m_library = std::make_unique<LibraryLines>(m_log             ? fileno(m_log.get())
                                               : options.verbose ? STDERR_FILENO
                                                                 : nobody);
    setDebugPrint(true);
}

void Console::Say(const std::string &line)
{
    if (!m_options.json && !m_options.quiet)
        WriteResult(line);
}

void Console::Emit(const nlohmann::ordered_json &result)
{
    if (m_options.json)
        Stream(result);
}

void Console::Stream(const nlohmann::ordered_json &result)
{
    nlohmann::ordered_json object = {{"schema", kSchema}};
    object.update(result);
    // A name may hold any bytes; what is no UTF-8 is shown as such and stops nothing.
    WriteResult(object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

void Console::Print(const std::string &text)
{
    WriteResult(text.ends_with('\n') ? text.substr(0, text.size() - 1) : text);
}

void Console::Note(const std::string &line)
{
    Log(line);
    if (!m_options.quiet)
        std::fputs((line + "\n").c_str(), stderr);
}

void Console::Warn(const std::string &line)
{
    Alert(fmt::terminal_color::yellow, "warning:", line);
}

void Console::Error(const std::string &line)
{
    Alert(fmt::terminal_color::red, "error:", line);
}

void Console::Alert(fmt::terminal_color colour, const char *kind, const std::string &line)
{
    Log(fmt::format("{} {}", kind, line));
    const auto style = m_options.colour && m_isTerminal ? fmt::fg(colour) : fmt::text_style();
    std::fputs(fmt::format("{} {}\n", fmt::format(style, "{}", kind), line).c_str(), stderr);
}

void Console::Log(const std::string &line)
{
    if (m_log)
        (void)WriteLine(m_log.get(), line);
}

void Console::WriteResult(const std::string &line)
{
    if (!WriteLine(m_results.get(), line))
        throw Failure(Exit::kFile,
                      "cannot write the results: " + std::generic_category().message(errno));
}

} // namespace vsctool
