#pragma once

#include "cooling/temperature_control.h"
#include "core/camera_base.h"

#include <optional>
#include <type_traits>

namespace vsccam {

/// A camera with a thermo-electric cooler and a fan.
///
/// The cooler thread runs from the end of InitCamera to CloseCamera. In each turn it reads the
/// sensor's temperature twice, and while regulation is on sets the power. Without a reading it
/// holds the power for a minute, then takes it back: a cooler whose thermometer is dead must not
/// run on. It shares the cooler with the host's thread, and with a capture worker that brings back
/// a lost camera: cooler.section is held by everything that changes drive, fan or regulation.
class CCameraCool : public CCameraBase {
  public:
    explicit CCameraCool(const CameraModel &ofModel) : CCameraBase(ofModel) {}

    /// Ends regulation and switches the cooler off before the device is closed.
    bool CloseCamera() override;

    /// Sends a drive code, unless it is the last one sent. The code of no current is sent once more
    /// when the camera refuses it. @return false when the request failed
    bool SetDA(int code);
    /// Sets the power within 0 to 100 per cent. @return false when the request failed
    bool SetPowerPerc(float percent);
    /// Switches regulation and sets its target, -40 to 30 degrees. Both start the controller anew.
    void SetAutoTemp(bool on, float targetC);
    /// @return false when the request failed; its state is then the old one
    bool SetFanOn(bool on);

    /// Switches the fan on and starts the cooler thread, unless it runs.
    void StartAutoTempThr();
    /// Ends and joins the cooler thread, then sets the power to 0; the fan stays as it is.
    void StopAutoTempThr();

  protected:
    void OnInitialised();
    void OnReconnected();

  private:
    void AutoTempFunc();
    bool ReadTemperature();
    void AutoTemp(std::optional<float> reading);
    bool TakeReading(float celsius) VSC_REQUIRES(cooler.section);
    void Regulate(float celsius) VSC_REQUIRES(cooler.section);
    void GiveWay() VSC_REQUIRES(cooler.section);
    void EndGivingWay(float celsius) VSC_REQUIRES(cooler.section);
    void PID_init(float kp, float ki, float kd) VSC_REQUIRES(cooler.section);

    static constexpr int kNothingSent = -1;

    // Plain values: the object is destroyed as a CCameraBase.
    struct Cooler {
        int driveCode = kNoCurrentCode;
        int lastCodeSent = kNothingSent;
        TemperatureControl control;
        Clock::time_point lastReading;  // that was no glitch
        std::optional<float> heldPower; // while it gives way: what it held before
    };
    static_assert(std::is_trivially_destructible_v<Cooler>);

    Cooler m_cooler VSC_GUARDED_BY(cooler.section);
};

} // namespace vsccam
