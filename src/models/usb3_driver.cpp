#include "models/usb3_driver.h"

#include "base/debug_print.h"
#include "models/register_holds.h"
#include "models/register_list.h"
#include "models/thermometer.h"
#include "models/usb3_capture_worker.h"
#include "usb/requests.h"

#include <algorithm>
#include <mutex>

namespace vsccam {

namespace {

constexpr int kLongExposureFromUs = 1'000'000;
constexpr int kFpsFiguresBelowUs = 100'000;

} // namespace

template <class Base>
Usb3Driver<Base>::Usb3Driver(const CameraModel &model, const Usb3Traits &traits)
    : Base(model), m_traits(traits)
{
    OutputDbgPrint("CCAMERA::CCAMERA()\n");
    m_timing.line = traits.initialLine;
    m_timing.shortestLine = traits.initialLine.length;
}

template <class Base> bool Usb3Driver<Base>::InitCamera()
{
    if (!this->IsOpened())
        return false;
    if (!this->ProgramWhole([this] { return SetUp(); }))
        return false;
    PrintUnverified(m_model);
    this->OnInitialised();
    return true;
}

template <class Base> bool Usb3Driver<Base>::SetUp()
{
    const std::lock_guard lock(m_settingsSection);
    this->IdentifyUsb3Camera();
    PowerUp();
    if (m_usb3Host || m_bandwidthAuto)
        m_bandwidth = AutoBandwidth();
    this->SetGamma(this->GetGamma());
    this->SetRGBBalance(m_red, m_blue, m_whiteBalanceAuto);
    this->SetBrightness(m_brightness);
    SetCMOSClk();
    LoadReadoutMode();
    this->SetGain(m_gain, m_gainAuto);
    this->SetExp(m_exposureUs, m_exposureAuto);
    FinishSettings();
    return true;
}

template <class Base> bool Usb3Driver<Base>::RestoreSettings()
{
    if (!this->IsOpened())
        return false;
    const std::lock_guard lock(m_settingsSection);
    const int chosenBefore = AutoBandwidth();
    this->IdentifyUsb3Camera();
    this->FollowLink(chosenBefore, AutoBandwidth());
    PowerUp();
    this->SetBrightness(m_brightness);
    this->SetGain(m_gain, m_gainAuto);
    SetOutput16Bits(m_output16Bits);
    LoadReadoutMode();
    // Either may write the rows, each in its own way: the last one before counts.
    const bool startWasLast = m_startWasLast;
    if (!startWasLast)
        this->SetStartPos(m_startX, m_startY);
    WriteSize();
    if (startWasLast)
        this->SetStartPos(m_startX, m_startY);
    SetCMOSClk();
    this->SetFPSPerc(m_bandwidth, m_bandwidthAuto); // and the exposure with it
    this->OnReconnected();
    return true;
}

template <class Base>
bool Usb3Driver<Base>::SetResolution(int width, int height, int bin, IMAGE_TYPE type)
{
    const Size sensor{m_model.sensorWidth, m_model.sensorHeight};
    if (!RegionFits(width, height, bin, sensor) || type < kByteImage || type > kRaw16)
        return false;
    const CapturePause pause(*this); // no frame mixes two sizes
    const std::lock_guard lock(m_settingsSection);
    PrepareFormat(bin, type);
    m_width = width;
    m_imageType = type;
    m_bin = bin;
    m_height = height;
    m_startX = (sensor.width - width * bin) >> 1;
    m_startY = (sensor.height - height * bin) >> 1;
    this->SetStartPos(m_startX, m_startY);
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
    this->SetFPSPerc(m_bandwidth, m_bandwidthAuto);
    this->SetExp(m_exposureUs, m_exposureAuto);
}

template <class Base>
bool Usb3Driver<Base>::MoveRegion(int x, int y, const std::function<void()> &program)
{
    const std::lock_guard lock(m_settingsSection); // the binning is part of the alignment
    const int stepX = m_bin == 3 ? m_traits.startXStepAtBin3 : m_traits.startXStep;
    m_startWasLast = true;
    return Base::MoveRegion(x, y, stepX, program);
}

template <class Base> void Usb3Driver<Base>::SetOutput16Bits(bool on)
{
    if (!m_longExposure) // else it is read out as a whole by what is set then
        this->CountFrameChange();
    m_output16Bits = on;
}

template <class Base> bool Usb3Driver<Base>::SetHardwareBin(bool on)
{
    if (!m_model.hasHardwareBin)
        return Base::SetHardwareBin(on);
    if (m_bin == 1) {
        m_hardwareBin = on;
        return true;
    }
    const Delivery::Pause readers(this->delivery); // none takes frames of before for those of now
    {
        const std::lock_guard lock(m_settingsSection);
        const bool changes = m_hardwareBin != on;
        m_hardwareBin = on; // the automatics tell frames of before by their size
        if (changes)
            LoadReadoutMode();
    }
    const CapturePause pause(*this);
    const int x = m_startX; // the region is centred when its size is set
    const int y = m_startY;
    (void)SetResolution(m_width, m_height, m_bin, this->ImageType()); // accepted before
    return this->SetStartPos(x, y);
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
    const std::lock_guard lock(m_settingsSection);
    SensorLine &line = m_timing.line;
    if (line.clockKHz < m_traits.lowestClockKHz)
        return false;
    const bool switchesToAuto = bAuto && !m_bandwidthAuto;
    m_bandwidth = switchesToAuto
                      ? AutoBandwidth()
                      : std::clamp(percent, m_model.bandwidth.min, m_model.bandwidth.max);
    const Size window = ReadoutSize();
    const float fps = FrameRate(Budget(), m_bandwidth, window, m_output16Bits);
    m_bandwidthAuto = bAuto;
    line.length =
        LineLength(fps, line.clockKHz, window.height, m_timing.shortestLine, m_traits.offsets);
    {
        const FpgaHold hold(*this);
        WriteFpga16(fpga::kLineLength, line.length);
    }
    const double megabytes = static_cast<double>(window.width) * window.height *
                             (m_output16Bits ? 2 : 1) * static_cast<double>(fps) / 1e6;
    // Quirk, kept: the line length is printed as "pkg", and 0 in the place of "1H".
    OutputDbgPrint("clk:%d fps:%2.2f size:%2.2f 1H:%dp value:%d pkg:%d \n", line.clockKHz,
                   static_cast<double>(fps), megabytes, 0, static_cast<int>(m_bandwidth),
                   line.length);
    this->SetExp(m_exposureUs, m_exposureAuto);
    CalcMaxFPS();
    return true;
}

template <class Base> bool Usb3Driver<Base>::SetExp(unsigned long long microseconds, bool bAuto)
{
    const std::lock_guard lock(m_settingsSection);
    m_exposureAuto = bAuto;
    this->StoreExposure(microseconds);
    SelectLongExposure(m_exposureUs >= kLongExposureFromUs);

    const SensorLine line = m_timing.line;
    const FrameExposure exposure =
        FrameExposureFor(m_exposureUs, line, ReadoutSize().height, m_traits.offsets);
    this->StoreFrameTime(exposure.frameTimeUs);
    m_exposureLines = exposure.Lines();
    OutputDbgPrint("VMAX:0x%x SSH1:0X%x %2.2fus 1f:%d mode:%d timeus:%d\n", exposure.vmax,
                   exposure.ssh1, static_cast<double>(line.TimeUs()), exposure.frameTimeUs,
                   m_longExposure ? 1 : 0, static_cast<int>(m_exposureUs));
    ProgramExposure(exposure);
    return true;
}

template <class Base> void Usb3Driver<Base>::SelectLongExposure(bool on)
{
    if (on == m_longExposure)
        return;
    if (!on)
        OutputDbgPrint("-----Exit long exp mode\n");
    SetFpgaMode(*this, FpgaRunCode(), on);
    if (!on)
        SetCMOSClk();
    m_longExposure = on;
    if (on)
        OutputDbgPrint("-----Enter long exp mode\n");
}

template <class Base> void Usb3Driver<Base>::CalcMaxFPS()
{
    if (m_exposureUs >= kFpsFiguresBelowUs || m_frameTimeUs <= 0)
        return;
    const Size window = ReadoutSize();
    const double fps = 1e6 / m_frameTimeUs;
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
        this->StoreTemperature(celsius);
    return m_temperatureC;
}

template <class Base> bool Usb3Driver<Base>::StartCapture(bool bSingleExposure)
{
    return this->StartWorker(bSingleExposure, [this] { Usb3CaptureWorker(*this, *this).Run(); });
}

template <class Base> LongExposurePlan Usb3Driver<Base>::PlanLongExposure(uint32_t exposureUs) const
{
    return GatedExposurePlan(exposureUs, m_frameTimeUs);
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
    SetFpgaMode(*this, FpgaRunCode(), m_longExposure);
}

template <class Base> void Usb3Driver<Base>::StopFpga()
{
    SetFpgaMode(*this, fpga::kStop, m_longExposure);
}

template <class Base> void Usb3Driver<Base>::WriteFrameLength(const FrameExposure &exposure)
{
    const FpgaHold hold(*this);
    for (uint16_t i = 0; i < 3; ++i)
        WriteFPGAREG(fpga::kFrameLength + i, ByteOf(static_cast<int>(exposure.vmax), i));
}

template class Usb3Driver<CCameraBase>;
template class Usb3Driver<CCameraCool>;

} // namespace vsccam
