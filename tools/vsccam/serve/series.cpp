#include "serve/series.h"

#include "failure.h"
#include "fits_writer.h"
#include "tiff_writer.h"

#include <fmt/format.h>
#include <vsccam.h>

#include <algorithm>
#include <system_error>

namespace vsctool::serve {
namespace {

constexpr int kMostFailuresInARow = 3;

} // namespace

Series::Series(const SeriesPlan &plan, const Host &host) : m_host(host)
{
    m_state.plan = plan;
    if (!plan.name.empty()) {
        (void)host.folder.FileOf(plan.name);
        m_names.emplace(plan.name, true);
    }
    CheckFitsText(plan.object);
    Begin();
}

void Series::Begin()
{
    m_run.reset(); // before anything is set: what is left of it would begin anew
    m_host.camera.SetFraming(m_state.plan.framing);
    m_host.camera.SetExposure(m_state.plan.exposure, m_host.console);
    m_run.emplace(m_host.camera, m_state.plan.exposure, m_host.patience);
    m_state.begun = m_run->BegunAt();
    m_state.since = Clock::now();
    m_next = m_state.since + m_state.plan.interval;
}

void Series::Restart()
{
    Begin();
}

std::optional<TakenPicture> Series::Turn()
{
    if (!m_run) {
        if (Clock::now() >= m_next)
            Begin();
        return std::nullopt;
    }
    if (!m_run->IsOver())
        return std::nullopt;
    try {
        TakenPicture taken = Finish();
        m_failuresInARow = 0;
        return taken;
    } catch (const Failure &failure) {
        // What is wrong with the disk, or with a camera that is gone, is not mended by another try.
        if (failure.Code() != static_cast<int>(Exit::kNoFrame) ||
            ++m_failuresInARow == kMostFailuresInARow)
            throw;
        m_host.console.Note(failure.what());
        ++m_state.retaken;
        Begin();
        return std::nullopt;
    }
}

TakenPicture Series::Finish()
{
    TakenPicture taken;
    const std::shared_ptr<Frame> frame = m_host.feed.Blank();
    const Exposure exposure = m_run->Take(*frame);
    m_run.reset();
    frame->isExposure = true;
    taken.facts = FactsOf(m_host.camera, exposure);
    taken.facts.type = m_state.plan.type;
    taken.facts.object = m_state.plan.object;
    taken.facts.simulated = m_host.simulated;
    m_host.feed.AddDropped(exposure.droppedFrames);
    taken.frame = m_host.feed.Publish(frame, m_host.camera);
    if (m_names)
        Save(taken);
    ++m_state.taken;
    m_state.begun.reset();
    return taken;
}

void Series::Save(TakenPicture &taken)
{
    const std::filesystem::path file = NextFile();
    (IsTiffName(file) ? WriteTiff : WriteFits)(file, taken.frame->picture, HeaderOf(taken.facts));
    taken.file = file.filename();
    m_state.lastFile = taken.file;
}

/// Numbers go on after the files that are there; no picture is ever replaced.
std::filesystem::path Series::NextFile()
{
    NameFields fields = {.sequence = 0,
                         .object = m_state.plan.object,
                         .type = m_state.plan.type,
                         .model = m_host.camera.Entry().model,
                         .format = FormatName(m_state.plan.framing.format),
                         .exposure = m_state.plan.exposure,
                         .gain = getValue(CONTROL_GAIN, nullptr),
                         .offset = getValue(CONTROL_BRIGHTNESS, nullptr),
                         .bin = m_state.plan.framing.bin,
                         .start = m_state.begun.value_or(UtcTime{})};
    for (;;) {
        fields.sequence = m_sequence++;
        std::filesystem::path file = m_host.folder.FileOf(m_names->Expand(fields));
        std::error_code unreachable; // shows when the file is created
        if (!std::filesystem::exists(file, unreachable))
            return file;
    }
}

} // namespace vsctool::serve
