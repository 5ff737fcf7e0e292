#pragma once

#include "library_lines.h"

#include <fmt/color.h>
#include <fmt/format.h>
#include <nlohmann/json_fwd.hpp>

#include <cstdio>
#include <memory>
#include <string>
#include <utility>

namespace vsctool {

struct ConsoleOptions {
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    bool progress = true;
    bool colour = true;
    std::string logFile;
};

/// Where words go: results to standard output, everything else to standard error. The library
/// writes its messages to descriptor 1, so the results leave through a copy of it, and descriptor 1
/// leads to LibraryLines, and from there to standard error or to the log file when they are wanted.
class Console {
  public:
    /// Before the first call into the library. Throws Failure when the log cannot be opened.
    explicit Console(const ConsoleOptions &options);

    /// A result in words (not with --json, not with --quiet) ...
    void Say(const std::string &line);
    /// ... and for programs (only with --json): one object per line.
    void Emit(const nlohmann::ordered_json &result);

    /// The same for results that are JSON in any case.
    void Stream(const nlohmann::ordered_json &result);

    /// Text that was asked for as such.
    void Print(const std::string &text);

    /// For results that are no lines.
    int ResultsDescriptor() const { return fileno(m_results.get()); }
    bool InJson() const { return m_options.json; }

    /// Tells the user something while the results take their time. None of the three throws, even
    /// when nobody can read it there or in the log.
    void Note(const std::string &line);
    /// Of what cannot be taken back: also with --quiet.
    void Warn(const std::string &line);
    void Error(const std::string &line);

    bool ShowsProgress() const
    {
        return m_options.progress && m_isTerminal && !m_options.quiet && !m_options.json;
    }
    /// Whether a line that changes in place serves for the results: nobody else reads them.
    bool ShowsResultsInPlace() const { return ShowsProgress() && m_resultsOnTerminal; }

  private:
    friend class ConsoleChange;

    struct CloseFile {
        void operator()(std::FILE *file) const { std::fclose(file); }
    };

    void Log(const std::string &line);
    void Alert(fmt::terminal_color colour, const char *kind, const std::string &line);
    void WriteResult(const std::string &line);

    ConsoleOptions m_options;
    bool m_isTerminal;
    bool m_resultsOnTerminal;
    std::unique_ptr<std::FILE, CloseFile> m_results;
    std::unique_ptr<std::FILE, CloseFile> m_log; // only with a log file
    std::unique_ptr<LibraryLines> m_library;     // after the log, into which it writes
};

/// Has a console speak by other options for a while. The log file stays what it was, and the
/// library's messages go where they went.
class ConsoleChange {
  public:
    ConsoleChange(Console &console, const ConsoleOptions &options)
        : m_console(console), m_before(std::exchange(console.m_options, options))
    {
    }
    ~ConsoleChange() { m_console.m_options = m_before; }
    ConsoleChange(const ConsoleChange &) = delete;
    ConsoleChange &operator=(const ConsoleChange &) = delete;

  private:
    Console &m_console;
    ConsoleOptions m_before;
};

} // namespace vsctool
