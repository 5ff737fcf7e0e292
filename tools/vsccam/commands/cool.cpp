#include "camera.h"
#include "commands/command.h"
#include "cooling.h"
#include "failure.h"
#include "stop_signals.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <deque>
#include <memory>

namespace vsctool {
namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr size_t kTrendReports = 15; // over the last minute

struct CoolOptions {
    int targetC = 0;
    std::optional<double> rampCPerMin;
    std::optional<Microseconds> duration;
};

/// The cooler of the open camera while the program looks after it.
class CoolingRun {
  public:
    CoolingRun(const CoolOptions &options, Context &context)
        : m_options(options), m_console(context.console), m_camera(context.camera),
          m_line(context.console.ShowsResultsInPlace())
    {
        RequireCooler(m_camera);
        m_startC = Temperature();
    }

    /// A camera that is kept open stays cold.
    void Run()
    {
        if (m_camera.IsKept())
            Cool();
        else
            WorkThenWarm(
                m_console, [this] { CoolQuietly(); }, [this] { Warm(); });
    }

  private:
    static double Temperature() { return static_cast<double>(getSensorTemp()); }

    /// Results that nobody reads any more are no reason to stop the cooler at once.
    void CoolQuietly()
    {
        try {
            Cool();
        } catch (const Failure &failure) {
            m_line.Show(""); // which stands where the next words go
            m_silent = failure.Code() < static_cast<int>(Exit::kSignal);
            throw;
        }
    }

    void Cool()
    {
        const auto start = SteadyClock::now();
        const double finalC = m_options.targetC;
        for (;;) {
            const auto elapsed = SteadyClock::now() - start;
            const double nowC = m_options.rampCPerMin
                                    ? OnRamp(m_startC, finalC, *m_options.rampCPerMin, elapsed)
                                    : finalC;
            MoveTarget(nowC);
            Report();
            if (m_options.duration ? elapsed >= *m_options.duration
                                   : m_camera.IsKept() && nowC == finalC)
                return;
            Wait();
        }
    }

    void Warm()
    {
        WarmUp(m_options.rampCPerMin.value_or(kUsualWarmingCPerMin), [this] {
            Report();
            Wait();
        });
        Note(fmt::format("the cooler is off, the sensor at {:.1f} C", Temperature()));
    }

    void Note(const std::string &line)
    {
        m_line.Show(""); // which stands where the note goes
        m_console.Note(line);
    }

    void Wait()
    {
        StopSignals::SleepFor(kCoolingInterval);
        m_camera.CheckPresence();
    }

    void Report()
    {
        if (m_silent)
            return;
        const double celsius = Temperature();
        const int power = getValue(CONTROL_COOLER_POWER, nullptr);
        const int target = getValue(CONTROL_TARGET_TEMP, nullptr);
        const double trend = TrendTo(celsius);
        const std::string words = fmt::format(
            "{:6.1f} C  target {:3} C  power {:3} %  {:+.1f} C/min", celsius, target, power, trend);
        if (m_console.ShowsResultsInPlace())
            m_line.Show(words);
        else
            m_console.Say(words);
        m_console.Emit({{"temperature_c", std::round(celsius * 10) / 10},
                        {"target_c", target},
                        {"power_percent", power},
                        {"trend_c_per_min", std::round(trend * 10) / 10}});
    }

    /// Degrees per minute over the last minute.
    double TrendTo(double celsius)
    {
        m_lastMinute.push_back({SteadyClock::now(), celsius});
        if (m_lastMinute.size() > kTrendReports)
            m_lastMinute.pop_front();
        const std::chrono::duration<double> time = m_lastMinute.back().at - m_lastMinute.front().at;
        return time > 0s ? (celsius - m_lastMinute.front().celsius) * 60 / time.count() : 0;
    }

    struct Reading {
        SteadyClock::time_point at;
        double celsius;
    };

    const CoolOptions &m_options;
    Console &m_console;
    Camera m_camera;
    LiveLine m_line;
    double m_startC = 0;
    bool m_silent = false;
    std::deque<Reading> m_lastMinute;
};

} // namespace

void AddCoolCommand(CLI::App &app, Command &chosen)
{
    CLI::App *cool =
        app.add_subcommand("cool", "Cool the sensor until stopped, then warm it again; in the "
                                   "shell, which keeps it cold, without waiting until it is");
    cool->footer("vsccam cool --target -10 --ramp 3");
    const auto options = std::make_shared<CoolOptions>();
    cool->add_option("--target", options->targetC, "Degrees Celsius, -40 to 30")
        ->required()
        ->check(CLI::Range(-40, 30));
    cool->add_option("--ramp", options->rampCPerMin, "Degrees per minute, down and up again")
        ->check(CLI::Range(0.1, 100.0));
    AddParsed(*cool, "--for", options->duration, ParseTime, "TIME",
              "End by itself after this time");
    cool->callback([&chosen, options] {
        chosen = [options](Context &context) { CoolingRun(*options, context).Run(); };
    });
}

} // namespace vsctool
