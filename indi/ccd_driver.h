#pragma once

#include "blob_buffer.h"
#include "camera_session.h"
#include "indi_shim.h"
#include "video_pump.h"

#include <functional>
#include <string>
#include <vector>

namespace vscindi {

/// A camera as INDI sees it: properties from and to the clients. What a client asks for becomes a
/// job of the session, what the session tells becomes properties; both happen on the thread of
/// INDI's event loop, which never waits for the camera.
class CcdDriver : public INDI::CCD {
  public:
    /// To be made and used by the thread of the event loop.
    /// @param wake  an eventfd that tells it of news
    explicit CcdDriver(int wake);
    ~CcdDriver() override;

    /// Runs in another thread; see there.
    CameraSession &Session() { return m_session; }

    const char *getDefaultName() override { return m_name.c_str(); }
    bool initProperties() override;
    void ISGetProperties(const char *device) override;
    bool updateProperties() override;
    bool ISNewNumber(const char *device, const char *name, double values[], char *names[],
                     int count) override;
    bool ISNewSwitch(const char *device, const char *name, ISState *states, char *names[],
                     int count) override;

    /// The session has news.
    void TakeEvents();
    /// Closes the camera, after warming it unless at once.
    void End(bool atOnce);
    /// Runs the event loop until that is done.
    void Run();
    /// The process ends without that loop: waits for a while.
    void EndAtOnce();

  protected:
    bool StartExposure(float seconds) override;
    bool AbortExposure() override;
    bool SetCaptureFormat(uint8_t index) override;
    bool StartStreaming() override;
    bool StopStreaming() override;
    IPState GuideNorth(uint32_t ms) override { return Guide(GUIDE_NORTH, ms); }
    IPState GuideSouth(uint32_t ms) override { return Guide(GUIDE_SOUTH, ms); }
    IPState GuideEast(uint32_t ms) override { return Guide(GUIDE_EAST, ms); }
    IPState GuideWest(uint32_t ms) override { return Guide(GUIDE_WEST, ms); }
    void addFITSKeywords(VSCINDI_FITS_ARGUMENTS) override;
    void UploadComplete(INDI::CCDChip *chip) override;
    bool saveConfigItems(FILE *file) override;
    // What the base class would do is done here, or in the session.
    bool processFastExposure(INDI::CCDChip *) override { return true; }
    void checkTemperatureTarget() override {}

  private:
    using Clock = std::chrono::steady_clock;

    void FillProperties();
    void FillControls();
    std::vector<INDI::Property *> OwnProperties();
    template <class Property> void Keep(Property &property, std::function<void()> use);

    void Take(const Opened &event);
    void Take(const NotOpened &event);
    void Take(const Closed &event);
    void Take(const FrameReady &event);
    void Take(const ExposureFailed &event);
    void Take(const Framed &event);
    void Take(const PulseEnded &event);
    void Take(const Lost &event);
    void Take(const Recovered &event);
    void Take(const Trouble &event);
    void Take(const Report &event);

    bool Connecting(const ISState *states, char *names[], int count);
    bool TakeRegion(const double values[], char *names[], int count);
    bool TakeBinning(const double values[], char *names[], int count);
    bool TakeTarget(double celsius);
    void ResetFrame();

    void WhenSent(std::function<void()> work);
    void TakeSent();
    void CheckUpload();
    void SetGeometry(const Framing &framing);
    void RequestFraming();
    void ContinueFastExposure();
    IPState Guide(GuideD direction, uint32_t ms);
    double Ramp();
    std::optional<vsctool::Mosaic> MosaicOfFrames() const;
    void ShowMosaic();
    void ShowControls(const Controls &controls);
    void ShowTiming(const FrameFacts &facts);
    void ShowStatistics(const Statistics &statistics);
    void ShowTemperature(const Report &report);
    void TellTrouble(const std::string &what);

    std::string m_name;
    BlobBuffer m_buffer;
    VideoPump m_pump;

    bool m_open = false;
    CameraFacts m_facts;
    Framing m_inForce;
    Framing m_asked; // its region in pixels of the sensor
    bool m_flipX = false;
    bool m_flipY = false;
    bool m_binsWithoutColour = false;
    uint64_t m_exposure = 0; // number of the last one
    bool m_exposing = false; // it is under way
    double m_seconds = 0;    // asked for
    Clock::time_point m_begun;
    std::optional<double> m_target; // of the cooler
    int m_pulses[2] = {0, 0};       // under way on each axis
    bool m_pulseBroken[2] = {false, false};

    // A frame that the base class sends on a thread of its own.
    bool m_sending = false;
    Clock::time_point m_sendingSince;
    bool m_looksFailed = false;
    std::atomic<bool> m_sent{false}; // set by that thread
    std::vector<std::function<void()>> m_whenSent;
    int64_t m_notSent = 0; // by the base class
    int64_t m_tooLate = 0; // frames of exposures that were aborted meanwhile

    // Of the video, for the thread that hands it over.
    std::atomic<size_t> m_streamBytes{0};
    std::atomic<bool> m_streamsColour{false};
    std::atomic<int64_t> m_wrongSize{0}; // frames that came before the region was in force

    INDI::PropertyText m_choice{1};
    INDI::PropertyText m_camera{4};
    INDI::PropertyNumber m_gain{1};
    INDI::PropertyNumber m_offset{1};
    INDI::PropertyNumber m_controls{0};
    INDI::PropertySwitch m_automatic{0};
    INDI::PropertySwitch m_flip{2};
    INDI::PropertySwitch m_cooler{2};
    INDI::PropertyNumber m_coolerPower{1};
    INDI::PropertyNumber m_setPoint{1};
    INDI::PropertySwitch m_fan{2};
    INDI::PropertyNumber m_counts{6};
    INDI::PropertyText m_status{2};
    INDI::PropertyNumber m_timing{4};
    INDI::PropertyText m_timingUtc{1};

    std::vector<Control_TYPE> m_shownControls;  // in the order of m_controls
    std::vector<Control_TYPE> m_shownAutomatic; // of m_automatic

    int m_hasEnded = 0;      // as the event loop wants it
    int m_wakeDescriptor;    // written to when an event waits
    CameraSession m_session; // ends first: its thread uses the buffers
};

} // namespace vscindi
