#include "camera/request_line.h"

#include <array>
#include <cstdarg>
#include <cstdio>

namespace vscsim {

namespace {

[[gnu::format(printf, 1, 2)]] std::string Format(const char *format, ...)
{
    std::array<char, 80> text{};
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(text.data(), text.size(), format, arguments); // no line is that long
    va_end(arguments);
    return text.data();
}

using Request = const ControlRequest &;
constexpr uint8_t kOut = 0x40; // vendor request to the device
constexpr uint8_t kIn = 0xC0;

long long Microseconds(Time time)
{
    return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
}

struct Verb {
    uint8_t requestType;
    uint8_t request;
    std::string (*line)(Request);
};

std::string Command(Request r)
{
    return Format("cmd %02X", r.request);
}
std::string Temperature(Request)
{
    return "temp?";
}
unsigned FlashAddress(Request r)
{
    return r.index * 256U;
}

constexpr Verb kVerbs[] = {
    {kOut, 0xA3, Command},
    {kOut, 0xA4, Command},
    {kOut, 0xA9, Command},
    {kOut, 0xAA, Command},
    {kOut, 0xAB, Command},
    {kOut, 0xAC, Command},
    {kOut, 0xAE, Command},
    {kOut, 0xAF, Command},
    {kOut, 0xA6, [](Request r) { return Format("sensor %04X=%04X", r.value, r.index); }},
    {kIn, 0xA7, [](Request r) { return Format("sensor %04X?", r.value); }},
    {kOut, 0xB6, [](Request r) { return Format("sony %04X=%02X", r.value, r.index); }},
    {kIn, 0xB7, [](Request r) { return Format("sony %04X?", r.value); }},
    {kOut, 0xBD, [](Request r) { return Format("fpga %02X=%02X", r.value, r.index); }},
    {kIn, 0xBC, [](Request r) { return Format("fpga %02X?", r.value); }},
    {kOut, 0xBE, [](Request r) { return Format("gpif32 %s", r.value != 0 ? "on" : "off"); }},
    {kIn, 0xAD, [](Request) { return std::string("firmware?"); }},
    {kIn, 0xB4, [](Request) { return std::string("host?"); }},
    {kIn, 0xB3, Temperature},
    {kIn, 0xC7, Temperature},
    {kOut, 0xB0, [](Request r) { return Format("guide on %d", r.value); }},
    {kOut, 0xB1, [](Request r) { return Format("guide off %d", r.value); }},
    {kOut, 0xB2, [](Request r) { return Format("cooler %d", r.value); }},
    {kOut, 0xB5,
     [](Request r) {
         return Format("transfer count %u", static_cast<uint32_t>(r.value) << 16 | r.index);
     }},
    {kIn, 0xC3, [](Request r) { return Format("flash read %06X+%d", FlashAddress(r), r.length); }},
    {kOut, 0xC2,
     [](Request r) { return Format("flash write %06X+%d", FlashAddress(r), r.length); }},
    {kOut, 0xC4, [](Request r) { return Format("flash erase %d", r.index); }},
    {kIn, 0xC4, [](Request r) { return Format("flash status %d", r.index); }},
};

} // namespace

std::string LineOf(const ControlRequest &request)
{
    for (const Verb &verb : kVerbs) {
        // A program that replaces the camera's own takes other requests, with data, by these codes.
        const bool isOther = verb.line == Command && request.length != 0;
        if (verb.requestType == request.requestType && verb.request == request.request && !isOther)
            return verb.line(request);
    }
    return Format("%02X %02X %04X %04X len %d", request.requestType, request.request, request.value,
                  request.index, request.length);
}

std::string LineOf(const Exposure &exposure)
{
    return Format("frame %u exposed %lld us since %lld us", exposure.frame,
                  Microseconds(exposure.duration), Microseconds(exposure.since));
}

std::string LineOf(const Pulse &pulse)
{
    return Format("line %d was on for %lld us", pulse.line, Microseconds(pulse.length));
}

} // namespace vscsim
