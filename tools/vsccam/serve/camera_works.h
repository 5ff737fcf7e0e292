#pragma once

#include "camera.h"
#include "program.h"
#include "serve/cooling_plan.h"
#include "serve/event_log.h"
#include "serve/folder.h"
#include "serve/guide_port.h"
#include "serve/latest_frame.h"
#include "serve/recording.h"
#include "serve/series.h"
#include "serve/snapshot.h"
#include "serve/video_feed.h"

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace vsctool::serve {

/// What the open camera is and can do; it stays the same.
struct CameraFacts {
    std::string model;
    bool simulated = false;
    int width = 0; // of the sensor
    int height = 0;
    double pixelUm = 0;
    bool colour = false;
    bool cooled = false;
    bool thermometer = false;
    double electronsPerAdu = 0; // 0: not known
    int adcBits = 0;            // likewise
    int bayerCode = 0;          // of colour models
    Microseconds shortestExposure{};
    Microseconds longestExposure{};
    std::vector<int> bins;
    std::vector<PixelFormat> formats;
    std::string notVerified; // of this model, in the library's words
};

/// The camera, and what it is doing. One thread works it, see CameraThread; the others look at what
/// it publishes.
class CameraWorks {
  public:
    /// Opens the camera. Throws Failure.
    CameraWorks(Context &context, const std::filesystem::path &folder);
    ~CameraWorks();
    CameraWorks(const CameraWorks &) = delete;
    CameraWorks &operator=(const CameraWorks &) = delete;

    // Of any thread.
    const CameraFacts &Facts() const { return m_facts; }
    const Folder &Files() const { return m_folder; }
    const LatestFrame &Frames() const { return m_frames; }
    std::shared_ptr<const Snapshot> Now() const;
    std::shared_ptr<const TakenPicture> LastPicture() const;
    std::deque<CoolingReading> CoolingHistory() const;
    GuidePort &Guide() { return m_guide; }
    EventLog &Log() { return m_log; }

    // Of the camera's thread: jobs, which throw Failure ...
    /// Whether video runs whenever nothing else does.
    void SetVideo(bool on);
    /// The same, as far as nothing is in the way.
    void PauseVideo();
    void SetControl(const Setting &setting);
    void SetForm(const PictureForm &form);
    /// Refused while another series is under way.
    void StartSeries(const SeriesPlan &plan);
    /// No matter whether there is one.
    void AbortSeries();
    void StartRecording(const RecordingPlan &plan);
    void StopRecording();
    void SetCooling(const CoolingWish &wish);

    // ... and what goes on between them.
    /// Does what is due. @return how long nothing else will be
    std::chrono::milliseconds Turn();
    /// Whether something has changed that others wait for, since it was last asked.
    bool HasNews() { return std::exchange(m_news, false); }
    void Publish();
    void End();

    /// Warms a sensor that is cooled; when the thread of the camera has ended.
    void Warm();

  private:
    using Clock = std::chrono::steady_clock;

    std::chrono::milliseconds Work();
    void StartVideo();
    void ReadVideo();
    void BeginSeries(const SeriesPlan &plan);
    void TurnSeries();
    void KeepPicture(std::shared_ptr<const TakenPicture> taken);
    void EndSeries(const std::string &failure);
    void CloseRecording();
    void Telemetry();
    void LookForCamera();
    void TellLost();
    void OpenAnew();
    void Recover();
    void Replay();
    Mode PresentMode() const;
    std::optional<CoolingNews> PresentCooling() const;
    void RequireNoRecording(const char *what) const;
    void RequirePresence() const;

    Context &m_context;
    const Folder m_folder;
    EventLog m_log;
    LatestFrame m_frames;
    GuidePort m_guide; // ends after the camera, which ends its pulses
    Camera m_camera;
    CameraFacts m_facts;
    VideoFeed m_feed{m_frames};
    CoolingPlan m_cooling;

    // What clients asked for.
    PictureForm m_form{.framing = {.bin = 1, .format = PixelFormat::kRaw8, .region = {}}};
    bool m_wantsVideo = true;
    std::map<std::string, Setting> m_settings; // by the control's name; set again after a loss
    Microseconds m_videoExposure{};

    std::optional<Series> m_series;
    std::optional<SeriesState> m_lastSeries;
    std::string m_seriesFailure;
    std::optional<Recording> m_recording;
    std::optional<RecordingNews> m_lastRecording;

    bool m_present = true;
    bool m_openedAnew = false;    // since the last picture of the series
    bool m_handleIsStale = false; // lost while nobody in the library looked for it
    bool m_formIsSet = false;     // of the video
    int m_reconnects = 0;
    std::optional<double> m_celsius;
    bool m_news = false;
    Clock::time_point m_nextTelemetry;
    Clock::time_point m_nextCooling;
    Clock::time_point m_nextLook;
    uint64_t m_revision = 0;

    mutable std::mutex m_mutex; // guards what follows
    std::shared_ptr<const Snapshot> m_now;
    std::shared_ptr<const TakenPicture> m_lastPicture;
    std::deque<CoolingReading> m_coolingHistory;
};

} // namespace vsctool::serve
