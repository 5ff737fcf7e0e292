#pragma once

#include "fits_header.h"
#include "name_pattern.h"
#include "serve/exposure_run.h"
#include "serve/folder.h"
#include "serve/video_feed.h"

#include <functional>
#include <optional>
#include <string>

namespace vsctool::serve {

/// The last picture that was taken, and all that is known of it.
struct TakenPicture {
    FramePtr frame;
    PictureFacts facts;
    std::string file; // empty: it was not saved
};

/// Why a series ended that nobody wants any more.
inline constexpr const char *kAborted = "aborted";

/// Pictures that are to be taken one after the other.
struct SeriesPlan {
    Microseconds exposure{};
    int count = 1;
    Microseconds interval{}; // from start to start
    Framing framing;
    std::string name; // of the files, see NamePattern; empty: the pictures are only looked at
    std::string type = "light";
    std::string object;
    /// Is told of each picture and, with null and the reason, that no more will come; by the
    /// camera's thread.
    std::function<void(std::shared_ptr<const TakenPicture>, const std::string &)> report{};
};

/// How a series goes.
struct SeriesState {
    SeriesPlan plan;
    int taken = 0;
    int retaken = 0;              // exposures that failed and were made again
    std::optional<UtcTime> begun; // the exposure that runs; nothing: it waits for the next one
    ExposureRun::Clock::time_point since{}; // the same
    std::string lastFile;
};

/// A series of pictures of the open camera that is under way; of the camera's thread. An exposure
/// that fails is made again, a few times in a row.
class Series {
  public:
    using Clock = ExposureRun::Clock;

    struct Host {
        Camera &camera;
        VideoFeed &feed;
        const Folder &folder;
        Console &console;
        Microseconds patience;
        bool simulated = false;
    };

    /// Begins it. Throws Failure when that cannot be done with this camera.
    Series(const SeriesPlan &plan, const Host &host);

    /// Does what is due. @return the picture when one was taken. Throws Failure when it has to end.
    std::optional<TakenPicture> Turn();
    bool IsDone() const { return m_state.taken == m_state.plan.count; }
    bool IsExposing() const { return m_run.has_value(); }

    /// The camera was opened anew: the exposure is made again.
    void Restart();

    const SeriesState &State() const { return m_state; }

  private:
    void Begin();
    TakenPicture Finish();
    void Save(TakenPicture &taken);
    std::filesystem::path NextFile();

    const Host m_host;
    std::optional<NamePattern> m_names;
    SeriesState m_state;
    std::optional<ExposureRun> m_run;
    Clock::time_point m_next; // when the next one begins, while none runs
    int m_sequence = 1;       // in names
    int m_failuresInARow = 0;
};

} // namespace vsctool::serve
