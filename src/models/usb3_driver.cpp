#include "models/usb3_driver.h"

#include "base/debug_print.h"
#include "capture/usb3_capture_worker.h"
#include "models/quiet_sensor.h"
#include "models/register_holds.h"
#include "models/register_list.h"
#include "models/thermometer.h"
#include "usb/requests.h"

#include <algorithm>
#include <utility>

namespace vsccam {

namespace {

constexpr int kLongExposureFromUs = 1'000'000;
constexpr int kFpsFiguresBelowUs = 100'000;

} // namespace

template <class Base>
Usb3Driver<Base>::Usb3Driver(const CameraModel &ofModel, const Usb3Traits &traits)
    : Base(ofModel), m_traits(traits)
{
    OutputDbgPrint("CCAMERA::CCAMERA()\n");
    this->UseQuieting(QuietSensor);
    m_timing.line = traits.initialLine;
    m_timing.shortestLine = traits.initialLine.length;
}

template <class Base> bool Usb3Driver<Base>::InitCamera()
{
    if (!this->IsOpened())
        return false;
    if (!programming.Whole([this] { return SetUp(); }))
        return false;
    PrintUnverified(model);
    this->OnInitialised();
    return true;
}

template <class Base> bool Usb3Driver<Base>::SetUp()
{
    const Programming::Scope scope(programming);
    this->IdentifyUsb3Camera();
    PowerUp();
    settings.With([chosen = AutoBandwidth()](Settings &s) {
        if (s.usb3Host || s.bandwidthAuto)
            s.bandwidth = chosen;
    });
    const Settings now = settings.Now();
    this->SetGamma(this->GetGamma());
    this->SetRGBBalance(now.red, now.blue, now.whiteBalanceAuto);
    this->SetBrightness(now.brightness);
    SetCMOSClk();
    LoadReadoutMode();
    this->SetGain(now.gain, now.gainAuto);
    this->SetExp(now.exposureUs, now.exposureAuto);
    FinishSettings();
    return true;
}

template <class Base> bool Usb3Driver<Base>::RestoreSettings()
{
    if (!this->IsOpened())
        return false;
    const Programming::Scope scope(programming);
    const int chosenBefore = AutoBandwidth();
    this->IdentifyUsb3Camera();
    this->FollowLink(chosenBefore, AutoBandwidth());
    PowerUp();
    const Settings now = settings.Now();
    this->SetBrightness(now.brightness);
    this->SetGain(now.gain, now.gainAuto);
    SetOutput16Bits(now.output16Bits);
    LoadReadoutMode();
    // Either may write the rows, each in its own way: the last one before counts.
    const bool startWasLast = m_startWasLast;
    if (!startWasLast)
        this->SetStartPos(now.startX, now.startY);
    WriteSize();
    if (startWasLast)
        this->SetStartPos(now.startX, now.startY);
    SetCMOSClk();
    this->SetFPSPerc(now.bandwidth, now.bandwidthAuto); // and the exposure with it
    this->OnReconnected();
    return true;
}

template <class Base>
bool Usb3Driver<Base>::SetResolution(int width, int height, int bin, IMAGE_TYPE type)
{
    const Size sensor{model.sensorWidth, model.sensorHeight};
    if (!RegionFits(width, height, bin, sensor) || type < kByteImage || type > kRaw16)
        return false;
    const FormatChange change(*this); // no frame mixes two sizes
    PrepareFormat(bin, type);
    settings.With([=](Settings &s) { s.SetFormat(sensor, {width, height}, bin, type); });
    const Settings now = settings.Now();
    this->SetStartPos(now.startX, now.startY);
    SetOutput16Bits(Is16Bit(type));
    WriteSize();
    ReapplyTiming();
    FinishSettings();
    return true;
}

template <class Base> void Usb3Driver<Base>::WriteSize()
{
    Cam_SetResolution();
    m_startWasLast = false;
}

template <class Base> void Usb3Driver<Base>::ReapplyTiming()
{
    SetCMOSClk();
    const Settings now = settings.Now();
    this->SetFPSPerc(now.bandwidth, now.bandwidthAuto);
    this->SetExp(now.exposureUs, now.exposureAuto);
}

template <class Base>
bool Usb3Driver<Base>::MoveRegion(int x, int y, const std::function<void()> &program)
{
    const Programming::Scope scope(programming); // the binning is part of the alignment
    const int stepX = settings.Now().bin == 3 ? m_traits.startXStepAtBin3 : m_traits.startXStep;
    m_startWasLast = true;
    return Base::MoveRegion(x, y, stepX, program);
}

template <class Base> void Usb3Driver<Base>::SetOutput16Bits(bool on)
{
    if (!programming.LongExposure()) // else it is read out as a whole by what is set then
        programming.CountFrameChange();
    settings.With([on](Settings &s) { s.output16Bits = on; });
}

template <class Base> bool Usb3Driver<Base>::SetHardwareBin(bool on)
{
    if (!model.hasHardwareBin)
        return Base::SetHardwareBin(on);
    // The automatics tell frames of before by their size.
    const auto store = [this, on] {
        return settings.With([on](Settings &s) { return std::exchange(s.hardwareBin, on) != on; });
    };
    if (settings.Now().bin == 1) {
        (void)store(); // nothing is binned
        return true;
    }
    // None takes frames of before for those of now. The capture itself ends only with the change of
    // format below: what the sensor loads here is still its.
    const Delivery::Pause readers(this->delivery);
    {
        const Programming::Scope scope(programming);
        if (store())
            LoadReadoutMode();
    }
    const FormatChange change(*this);
    const Settings now = settings.Now(); // the region is centred when its size is set
    (void)SetResolution(now.width, now.height, now.bin, now.imageType); // accepted before
    return this->SetStartPos(now.startX, now.startY);
}

template <class Base> int Usb3Driver<Base>::Budget() const
{
    return settings.Now().usb3Host ? m_traits.budget.usb3Host : m_traits.budget.usb2Host;
}

template <class Base> void Usb3Driver<Base>::SetCMOSClk()
{
    if (!this->IsOpened())
        return;
    const int clockKHz = ReadoutClockKHz();
    OutputDbgPrint("set clk %d M!\n", clockKHz);
    SelectClock();
    m_timing.line.clockKHz = clockKHz;
}

template <class Base> bool Usb3Driver<Base>::SetFPSPerc(int percent, bool bAuto)
{
    const Programming::Scope scope(programming);
    SensorLine &line = m_timing.line;
    if (line.clockKHz < m_traits.lowestClockKHz)
        return false;
    settings.With([=, this, chosen = AutoBandwidth()](Settings &s) {
        s.bandwidth = bAuto && !s.bandwidthAuto
                          ? chosen
                          : std::clamp(percent, model.bandwidth.min, model.bandwidth.max);
        s.bandwidthAuto = bAuto;
    });
    const Settings now = settings.Now();
    const auto [window, is16, softwareBin] = ReadoutOf(model, now);
    const float fps = FrameRate(Budget(), now.bandwidth, window, is16);
    line.length =
        LineLength(fps, line.clockKHz, window.height, m_timing.shortestLine, m_traits.offsets);
    {
        const FpgaHold hold(*this);
        WriteFpga16(fpga::kLineLength, line.length);
    }
    const double megabytes = static_cast<double>(window.width) * window.height * (is16 ? 2 : 1) *
                             static_cast<double>(fps) / 1e6;
    // Quirk, kept: the line length is printed as "pkg", and 0 in the place of "1H".
    OutputDbgPrint("clk:%d fps:%2.2f size:%2.2f 1H:%dp value:%d pkg:%d \n", line.clockKHz,
                   static_cast<double>(fps), megabytes, 0, now.bandwidth, line.length);
    this->SetExp(now.exposureUs, now.exposureAuto);
    CalcMaxFPS();
    return true;
}

template <class Base> bool Usb3Driver<Base>::SetExp(unsigned long long microseconds, bool bAuto)
{
    const Programming::Scope scope(programming);
    const uint32_t us = this->StoreExposure(microseconds, bAuto);
    SelectLongExposure(us >= kLongExposureFromUs);

    const SensorLine line = m_timing.line;
    const FrameExposure exposure =
        FrameExposureFor(us, line, ReadoutNow().size.height, m_traits.offsets);
    programming.SetFrameTime(exposure.frameTimeUs);
    settings.With([&exposure](Settings &s) { s.exposureLines = exposure.Lines(); });
    OutputDbgPrint("VMAX:0x%x SSH1:0X%x %2.2fus 1f:%d mode:%d timeus:%d\n", exposure.vmax,
                   exposure.ssh1, static_cast<double>(line.TimeUs()), exposure.frameTimeUs,
                   programming.LongExposure() ? 1 : 0, static_cast<int>(us));
    ProgramExposure(exposure);
    return true;
}

template <class Base> void Usb3Driver<Base>::SelectLongExposure(bool on)
{
    if (on == programming.LongExposure())
        return;
    if (!on)
        OutputDbgPrint("-----Exit long exp mode\n");
    SetFpgaMode(*this, FpgaRunCode(), on);
    if (!on)
        SetCMOSClk();
    programming.SetLongExposure(on);
    if (on)
        OutputDbgPrint("-----Enter long exp mode\n");
}

template <class Base> void Usb3Driver<Base>::CalcMaxFPS()
{
    const int frameTimeUs = programming.FrameTimeUs();
    if (settings.Now().exposureUs >= kFpsFiguresBelowUs || frameTimeUs <= 0)
        return;
    const Size window = ReadoutNow().size;
    const double fps = 1e6 / frameTimeUs;
    const double megabytesPerS = fps * window.width * window.height / 1e6;
    OutputDbgPrint("calc fps: clk:%d data:%2.1f fps:%2.1f pkg:%d \n", m_timing.line.clockKHz,
                   megabytesPerS, fps, m_timing.line.length);
}

template <class Base> float Usb3Driver<Base>::GetSensorTemp()
{
    if (m_traits.thermistor)
        return this->GetADTemp();
    uint8_t bytes[2] = {};
    const bool ok = SendCMD(request::kSensorTemperature, 0, 0, true, bytes, sizeof bytes);
    const float celsius = ThermometerTemperature(bytes[0], bytes[1]);
    if (ok && celsius != 0.0F) // 0 is what a sensor without an answer gives
        this->temperature.Store(celsius);
    return this->temperature.Celsius();
}

template <class Base> bool Usb3Driver<Base>::StartCapture(bool bSingleExposure)
{
    return this->capture.Start(bSingleExposure,
                               [this] { Usb3CaptureWorker(this->capture, *this).Run(); });
}

template <class Base> LongExposurePlan Usb3Driver<Base>::PlanLongExposure(uint32_t exposureUs) const
{
    return GatedExposurePlan(exposureUs, settings.Now().inForce.frameTimeUs);
}

template <class Base> void Usb3Driver<Base>::OpenExposureGate()
{
    SetExposureGate(*this, true);
}

template <class Base> void Usb3Driver<Base>::CloseExposureGate()
{
    SetExposureGate(*this, false);
}

template <class Base> void Usb3Driver<Base>::RunFpga()
{
    SetFpgaMode(*this, FpgaRunCode(), programming.LongExposure());
}

template <class Base> void Usb3Driver<Base>::StopFpga()
{
    SetFpgaMode(*this, fpga::kStop, programming.LongExposure());
}

template <class Base> void Usb3Driver<Base>::WriteFrameLength(const FrameExposure &exposure)
{
    const FpgaHold hold(*this);
    for (uint16_t i = 0; i < 3; ++i)
        WriteFpga(fpga::kFrameLength + i, ByteOf(static_cast<int>(exposure.vmax), i));
}

template class Usb3Driver<CCameraBase>;
template class Usb3Driver<CCameraCool>;

} // namespace vsccam
