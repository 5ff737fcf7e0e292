#pragma once

#include <cstdint>

/// Vendor requests of the camera's USB controller, on endpoint 0.
namespace vsccam::request {

inline constexpr uint8_t kRam = 0xA0; // boot loader: RAM write and read, FX2 CPUCS
inline constexpr uint8_t kSensorClock24MHz = 0xA3;
inline constexpr uint8_t kSensorClock48MHz = 0xA4;
inline constexpr uint8_t kWriteSensor = 0xA6;
inline constexpr uint8_t kReadSensor = 0xA7;
inline constexpr uint8_t kStartDataPath = 0xA9;
inline constexpr uint8_t kEeprom = 0xA9; // of the firmware that programs the FX2's EEPROM
inline constexpr uint8_t kStopDataPath = 0xAA;
inline constexpr uint8_t kOutput8Bits = 0xAB;
inline constexpr uint8_t kOutput16Bits = 0xAC;
inline constexpr uint8_t kFirmwareVersion = 0xAD;
inline constexpr uint8_t kStopSensorClock = 0xAE;
inline constexpr uint8_t kStartSensorClock = 0xAF;
inline constexpr uint8_t kGuideOn = 0xB0;
inline constexpr uint8_t kGuideOff = 0xB1;
inline constexpr uint8_t kCoolerDrive = 0xB2;
inline constexpr uint8_t kSensorTemperature = 0xB3;
inline constexpr uint8_t kUsb3Host = 0xB4;
inline constexpr uint8_t kTransferCount = 0xB5;
inline constexpr uint8_t kWriteSensorByte = 0xB6;
inline constexpr uint8_t kReadSensorByte = 0xB7;
inline constexpr uint8_t kWriteI2cEeprom = 0xBA;
inline constexpr uint8_t kReadI2cEeprom = 0xBB;
inline constexpr uint8_t kReadFpga = 0xBC;
inline constexpr uint8_t kWriteFpga = 0xBD;
inline constexpr uint8_t kGpif32 = 0xBE;
inline constexpr uint8_t kWriteFlash = 0xC2;
inline constexpr uint8_t kReadFlash = 0xC3;
inline constexpr uint8_t kEraseFlash = 0xC4;
inline constexpr uint8_t kThermistor = 0xC7;

/// Whether the camera stays half programmed when this request gets no answer. Requests that only
/// read, that write memories which keep their data, or that are repeated anyway do not count.
constexpr bool Programs(uint8_t request, bool read, uint16_t value)
{
    if (read)
        return request == kUsb3Host || request == kReadSensorByte;
    switch (request) {
    case kRam:
    case kGuideOn:
    case kGuideOff:
    case kCoolerDrive:
    case kWriteI2cEeprom:
    case kWriteFlash:
    case kEraseFlash:
        return false;
    case kGpif32:
        return value != 0; // while the bus is narrow only the flash is read
    default:
        return true;
    }
}

} // namespace vsccam::request
