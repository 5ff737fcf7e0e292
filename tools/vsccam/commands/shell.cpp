#include "camera.h"
#include "commands/command.h"
#include "cooling.h"
#include "failure.h"
#include "input_lines.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>

namespace vsctool {
namespace {

constexpr const char *kPrompt = "vsccam> ";
constexpr int kInterrupted = static_cast<int>(Exit::kSignal) + SIGINT;

/// Like the parser itself takes a command line apart: with quotes, also behind "=".
std::vector<std::string> WordsOf(const std::string &line)
{
    if (line.find_first_not_of(" \t\r") == line.find('#')) // a remark, or nothing at all
        return {};
    std::vector<std::string> words =
        CLI::detail::split_up(CLI::detail::find_and_modify(line, "=", CLI::detail::escape_detect));
    std::erase(words, "");
    return words;
}

/// Commands, one per line, for a camera that stays open, and cold, from one to the next.
class Shell {
  public:
    Shell(const std::string &script, Context &context)
        : m_context(context), m_isScript(!script.empty()), m_lines(script)
    {
        (void)Camera(context.camera); // opens it, or tells why not
    }

    void Run()
    {
        WorkThenWarm(
            m_context.console, [this] { RunLines(); }, [this] { Warm(); });
        if (m_failed > 0 && !IsForPerson())
            throw Failure(m_lastCode, fmt::format("{} of {} commands failed", m_failed, m_count));
    }

  private:
    /// Who sees each failure; others learn of them by the exit code.
    bool IsForPerson() const { return m_lines.FromTerminal(); }

    void RunLines()
    {
        while (const std::optional<std::string> line = NextLine()) {
            const std::vector<std::string> words = WordsOf(*line);
            if (words.empty())
                continue;
            if (words.front() == "quit" || words.front() == "exit")
                return;
            RunLine(*line, words);
        }
    }

    /// SIGINT ends the command that runs, and here there is none: the shell goes on.
    std::optional<std::string> NextLine()
    {
        for (;;) {
            try {
                if (IsForPerson())
                    std::fputs(kPrompt, stderr);
                return m_lines.Next();
            } catch (const Failure &failure) {
                if (failure.Code() != kInterrupted || m_isScript)
                    throw;
                if (IsForPerson())
                    std::fputs("\n", stderr);
            }
        }
    }

    void RunLine(const std::string &line, const std::vector<std::string> &words)
    {
        ++m_count;
        int code = static_cast<int>(Exit::kOk);
        std::string message;
        try {
            m_context.run(words);
        } catch (const Failure &failure) {
            code = failure.Code();
            message = failure.what();
            if (code > static_cast<int>(Exit::kSignal) && (code != kInterrupted || m_isScript))
                throw;
        } catch (const std::exception &error) {
            code = static_cast<int>(Exit::kFailure);
            message = error.what();
        }
        if (m_kept.IsOpen())
            m_kept.Rest();
        if (code != static_cast<int>(Exit::kOk))
            Complain(code, message);
        nlohmann::ordered_json result = {{"command", line}, {"code", code}};
        if (!message.empty())
            result["error"] = message;
        m_context.console.Emit(result); // so that programs know that the line is done
    }

    void Complain(int code, const std::string &message)
    {
        ++m_failed;
        m_lastCode = code;
        m_context.console.Error(message);
        if (code != static_cast<int>(Exit::kCameraLost))
            return;
        m_kept.LetGo();
        m_context.console.Note("the next command opens the camera anew, without its settings and "
                               "its cooling");
    }

    void Warm()
    {
        if (!m_kept.IsOpen() || !getValue(CONTROL_COOLER_ON, nullptr))
            return;
        Camera camera(m_context.camera);
        WarmUp(camera, m_context.console);
    }

    Context &m_context;
    const bool m_isScript;
    InputLines m_lines;
    KeptCamera m_kept;
    int m_count = 0;
    int m_failed = 0;
    int m_lastCode = 0;
};

void RunShell(const std::string &script, Context &context)
{
    if (!context.run)
        throw Failure(Exit::kUsage, "this is the shell already");
    Shell(script, context).Run();
}

} // namespace

void AddShellCommand(CLI::App &app, Command &chosen)
{
    CLI::App *shell =
        app.add_subcommand("shell", "Run commands, one per line, while the camera stays open and "
                                    "cooled; 'quit' or the end of the input warms and closes it");
    const auto script = std::make_shared<std::string>();
    shell->add_option("script", *script, "File with the commands (default: standard input)")
        ->type_name("FILE");
    shell->footer("printf 'capture --cool -10 --wait-temp 0.5 -e 60s -n 9\\n"
                  "capture -e 1s -n 9\\n' | vsccam shell");
    shell->callback(
        [&chosen, script] { chosen = [script](Context &context) { RunShell(*script, context); }; });
}

} // namespace vsctool
