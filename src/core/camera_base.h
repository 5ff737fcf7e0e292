#pragma once

#include "base/guarded.h"
#include "capture/capture.h"
#include "core/automatics.h"
#include "core/camera_for_capture.h"
#include "core/camera_model.h"
#include "core/controls.h"
#include "core/delivery.h"
#include "core/frame_geometry.h"
#include "core/guide_port.h"
#include "core/programming.h"
#include "core/settings.h"
#include "core/temperature.h"
#include "usb/camera_fx3.h"

#include <array>
#include <cstdint>
#include <functional>
#include <new>
#include <optional>

namespace vsccam {

/// Eight bytes of user identity, opaque to the library.
using CameraId = std::array<uint8_t, 8>;

/// A camera: its settings, its frames, its threads. Sensor families derive from it and program
/// their sensors in the virtual operations, whose order is fixed.
///
/// Threads. Threads of the host call the public operations, any of them at the same time, but for
/// those that open, close, initialise or change the format, and those that start or stop captures:
/// these come one after the other. The capture worker reads the bulk endpoint and inserts frames;
/// the auto-control thread and the worker set gain, exposure, balance and bandwidth through the
/// same operations as the host. Whoever stores, computes and writes registers does it in a sequence
/// of Programming; whoever only asks takes a copy of the settings, and waits for nobody's requests.
/// A Delivery::Pause keeps readers of frames out while a capture is stopped or the geometry
/// changes. StopCapture, CloseCamera and destruction leave no thread behind.
///
/// Destruction runs as CCameraBase, without a virtual destructor: whatever owns something is a
/// member here, and derived classes have plain values only.
class CCameraBase : public CCameraFX3 {
  public:
    explicit CCameraBase(const CameraModel &ofModel);
    ~CCameraBase();

    static void *operator new(size_t size);
    static void operator delete(void *memory); // of an object whose constructor failed
    /// Makes `delete` through the base well defined: closes the camera, destroys the base, then
    /// frees the whole object.
    void operator delete(CCameraBase *camera, std::destroying_delete_t);

    virtual bool OpenCamera(int n);
    virtual bool InitCamera() = 0;
    virtual bool CloseCamera();
    virtual bool SetResolution(int width, int height, int bin, IMAGE_TYPE type) = 0;
    virtual bool SetStartPos(int x, int y) = 0; // unbinned sensor pixels
    virtual bool SetGain(int gain, bool bAuto) = 0;
    virtual int GetGain(bool *pbAuto);
    virtual bool SetGamma(int gamma);
    virtual int GetGamma();
    virtual bool SetBrightness(int brightness);
    virtual bool SetHighSpeedMode(bool on);
    virtual bool SetHardwareBin(bool on);
    virtual bool SetFPSPerc(int percent, bool bAuto);
    virtual bool GetFPSPerc(int *percent, bool *pbAuto);
    virtual bool SetOverCLKPerc(int percent);
    virtual bool SetRGBBalance(int red, int blue, bool bAuto); // of colour models
    virtual bool SetExp(unsigned long long microseconds, bool bAuto) = 0;
    virtual bool GetImage(unsigned char *buffer, int size, int waitMs);
    virtual float GetSensorTemp();
    virtual bool StartCapture(bool bSingleExposure) = 0;
    virtual bool StopCapture();
    virtual bool IsHardBinRun();

    void StartExposure() { (void)StartCapture(true); } // the status tells how it went
    void StopExposure() { (void)StopCapture(); }

    bool GetImageAfterExp(unsigned char *buffer, int size);
    /// For the capture worker: gives up when it is to end.
    bool ReConnectCamera();
    bool StartSensorCLK();
    bool StopSensorCLK();
    void SetAutoPara(int maxGain, int maxExpSeconds, int targetBrightness);
    void GetAutoPara(int *maxGain, int *maxExpSeconds, int *targetBrightness) const;
    /// Temperature that the cooler thread read last while it runs, else a fresh reading.
    float GetTemp();

    /// The newer control interface. The list holds what the model offers. No pointer may be null:
    /// the exported functions see to that.
    void refreshControlList();
    /// @param index  of the list; false beyond it
    bool GetControlCaps(int index, _VSC_CONTROL_CAPS *caps) const;
    /// @return kControlSet, kControlNotSettable or kControlRefused
    int SetControlValue(VSC_CONTROL_TYPE type, int32_t value, bool bAuto);
    /// False, with *pValue untouched, for unknown controls and those of a cooler that is not there.
    bool GetControlValue(VSC_CONTROL_TYPE type, int32_t *pValue, int32_t *pbAuto);

    bool pulseGuide(int direction, int ms);
    bool pulseGuideOn(int direction);
    bool pulseGuideOff(int direction);

    /// User identity in the camera's flash. Reading leaves *id alone when there is none.
    bool ReadIDFromSPI(CameraId *id);
    bool WriteIDToSPI(const CameraId &id);

    /// Requests a dark frame, made of the next whole frames of 8 bits that are delivered, or
    /// cancels the request. @return the number of frames, which depends on the exposure
    int GettingDark(bool on, unsigned long long = 0);
    /// Subtraction of the dark frame; ending it frees the frame.
    void UsingDark(bool on);
    /// The dark frame as a bitmap file. Both return 1 on success; 0 and, of loading, further codes
    /// say what failed.
    int SaveBMPToFile(const char *path);
    int LoadBMPFromFile(const char *path);
    /// Hot-pixel correction by the table in the camera's flash.
    void SetHPCStates(bool on);
    bool LoadHPCTable();
    /// Makes a table of the pixels that are bright in the dark frame, and stores it.
    bool SaveHPCTable();

    // By name only: nothing in the library calls these, and no exported function reaches them.

    /// Draws the local date and time into an image of the current height, if it has room for it.
    void AddTimeMark(unsigned char *image, int width, IMAGE_TYPE type);
    /// Tells the controller how long frames are.
    bool SetTransferCount(int bytes);
    /// Fit dark frame and hot pixels to the frames that follow. Without memory for it the
    /// correction ends; of the dark frame, the result says so.
    bool AdjustDarkBuff();
    void AdjustHPCTable();
    void GetCameraProperty(_VSC_CAMERA_INFO *info) const;

    // What a camera is made of. Each part tells in its header what it has, and who may use it.
    const CameraModel &model;
    Guarded<Settings> settings;
    Programming programming VSC_ACQUIRED_BEFORE(cooler.section);
    Capture capture;
    Delivery delivery;
    Automatics automatics;
    GuidePort guide;
    TemperatureReading temperature;
    CoolerParts cooler;
    ControlListing controls;

  protected:
    /// A change of the frames' geometry: keeps readers away, stops a running capture and forgets
    /// its frames, then programs. At its end the capture starts again the way it ran. Programming
    /// comes last, because the worker that is to end may be waiting for it. Changes contain each
    /// other.
    class VSC_SCOPED_CAPABILITY FormatChange {
      public:
        explicit FormatChange(CCameraBase &camera) VSC_ACQUIRE(camera.programming);
        ~FormatChange() VSC_RELEASE();
        FormatChange(const FormatChange &) = delete;
        FormatChange &operator=(const FormatChange &) = delete;

      private:
        Delivery::Pause m_delivery;
        CCameraBase &m_camera;
        const bool m_ran;
        std::optional<Programming::Scope> m_programming;
    };

    /// Stores the start of a region of the size and binning that are set, aligned to `stepX`
    /// columns and two rows and kept on the sensor, and lets `program` tell the sensor. Corrections
    /// follow the region here: whoever moves it, in whatever family, passes through.
    bool MoveRegion(int x, int y, int stepX, const std::function<void()> &program);

    /// Stores an exposure within the range of the model, before the camera is told.
    /// @return in microseconds
    uint32_t StoreExposure(unsigned long long microseconds, bool bAuto);
    Readout ReadoutNow() const { return ReadoutOf(model, settings.Now()); }

    /// Host port, hot-pixel table and versions: the first requests of USB 3.0 cameras whenever they
    /// are initialised.
    void IdentifyUsb3Camera();
    /// When a camera comes back on a link of another speed, a bandwidth that is automatic, or still
    /// what the library chose for the link before, becomes what it chooses for this one.
    void FollowLink(int chosenBefore, int chosenNow);

    /// Temperature by the thermistor of boards that have one; the last good reading when it fails.
    float GetADTemp();
    /// Called at the end of a successful InitCamera, and after a lost device was programmed again.
    /// Cooled cameras have their own.
    void OnInitialised() {}
    void OnReconnected() {}

  private:
    friend CameraForCapture;

    int m_ordinal = 0;

    CameraForCapture m_forCapture{*this};
};

} // namespace vsccam
