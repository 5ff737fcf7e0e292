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

constexpr auto kReportInterval = 4s;
constexpr size_t kTrendReports = 15; // over the last minute
constexpr double kUsualWarmingCPerMin = 5;
constexpr double kWarmEnoughC = 1; // below the warmest target, on a hot day

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

    void Run()
    {
        try {
            Cool();
        } catch (const Failure &failure) {
            if (failure.Code() == static_cast<int>(Exit::kCameraLost))
                throw;
            if (failure.Code() >= static_cast<int>(Exit::kSignal))
                Note("warming the sensor; stop once more to end at once");
            else
                m_silent = true; // nobody reads what it says any more
            Warm();
            throw;
        }
        Warm();
    }

  private:
    static double Temperature() { return static_cast<double>(getSensorTemp()); }

    static void MoveTo(double targetC)
    {
        // A ramp may begin beyond what can be asked for, on a hot day.
        const int whole = std::clamp(static_cast<int>(std::lround(targetC)),
                                     getMin(CONTROL_TARGET_TEMP), getMax(CONTROL_TARGET_TEMP));
        if (getValue(CONTROL_TARGET_TEMP, nullptr) != whole ||
            !getValue(CONTROL_COOLER_ON, nullptr))
            Regulate(whole); // which begins anew: not more often than need be
    }

    /// Where a ramp from `fromC` to `toC` is by now.
    static double OnRamp(double fromC, double toC, double cPerMin, SteadyClock::duration elapsed)
    {
        const double way = cPerMin * std::chrono::duration<double>(elapsed).count() / 60;
        return toC < fromC ? std::max(toC, fromC - way) : std::min(toC, fromC + way);
    }

    void Cool()
    {
        const auto start = SteadyClock::now();
        const double finalC = m_options.targetC;
        for (;;) {
            const auto elapsed = SteadyClock::now() - start;
            MoveTo(m_options.rampCPerMin ? OnRamp(m_startC, finalC, *m_options.rampCPerMin, elapsed)
                                         : finalC);
            Report();
            if (m_options.duration && elapsed >= *m_options.duration)
                return;
            Wait();
        }
    }

    /// A sensor that warms fast may gather dew, and strains. It is warm when regulation needs no
    /// power: also after a start with a sensor that was cold already.
    void Warm()
    {
        const auto start = SteadyClock::now();
        const double fromC = Temperature();
        const double cPerMin = m_options.rampCPerMin.value_or(kUsualWarmingCPerMin);
        const double warmC = getMax(CONTROL_TARGET_TEMP);
        while (Temperature() < warmC - kWarmEnoughC &&
               getValue(CONTROL_COOLER_POWER, nullptr) > 0) {
            MoveTo(OnRamp(fromC, warmC, cPerMin, SteadyClock::now() - start));
            Report();
            Wait();
        }
        setValue(CONTROL_COOLER_ON, 0, false);
        Note(fmt::format("the cooler is off, the sensor at {:.1f} C", Temperature()));
    }

    void Note(const std::string &line)
    {
        m_line.Show(""); // which stands where the note goes
        m_console.Note(line);
    }

    void Wait()
    {
        StopSignals::SleepFor(kReportInterval);
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
        app.add_subcommand("cool", "Cool the sensor until stopped, then warm it again");
    const auto options = std::make_shared<CoolOptions>();
    cool->add_option("--target", options->targetC, "Degrees Celsius, -40 to 30")
        ->required()
        ->check(CLI::Range(-40, 30));
    cool->add_option("--ramp", options->rampCPerMin, "Degrees per minute, down and up again")
        ->check(CLI::PositiveNumber);
    AddParsed(*cool, "--for", options->duration, ParseTime, "TIME",
              "End by itself after this time");
    cool->callback([&chosen, options] {
        chosen = [options](Context &context) { CoolingRun(*options, context).Run(); };
    });
}

} // namespace vsctool
