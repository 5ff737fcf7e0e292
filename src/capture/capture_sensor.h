#pragma once

#include <chrono>
#include <cstdint>

namespace vsccam {

/// How the host times a long exposure and how long it then waits for the frame.
struct LongExposurePlan {
    std::chrono::milliseconds step; // the exposure is slept in steps,
    int steps;                      // so many
    std::chrono::milliseconds readTimeout;
    long printedWaitMs;
    std::chrono::milliseconds rest{};   // also slept, where the steps do not make up the exposure
    std::chrono::milliseconds beside{}; // that the sensor integrates before or after
};

/// What a capture worker needs of a sensor family beside the operations of the camera.
class CaptureSensor {
  public:
    virtual void StartSensorStreaming() = 0;
    virtual void StopSensorStreaming() = 0;

    virtual LongExposurePlan PlanLongExposure(uint32_t exposureUs) const = 0;
    virtual void OpenExposureGate() = 0;
    virtual void CloseExposureGate() = 0;

    /// Programs a camera that was lost and opened again with everything that is set.
    virtual bool RestoreSettings() = 0;

  protected:
    ~CaptureSensor() = default;
};

/// What the capture worker of the USB 2.0 cameras needs beside what every worker does.
class Usb2Sensor : public CaptureSensor {
  public:
    /// Takes over again from the host when an exposure has become short enough for the sensor.
    virtual void FollowExposure() = 0;
    /// Lengthens the lines a little, for a link that drops data.
    virtual void SlowDown() = 0;
    /// Prints the black level of sensors that tell it.
    virtual void PrintBlackLevel() = 0;

  protected:
    ~Usb2Sensor() = default;
};

} // namespace vsccam
