#pragma once

#include <indiccd.h>
#include <indiversion.h>

#include <vector>

/// What differs between the releases of INDI's base classes. This driver is tried with 1.9.9; the
/// branch for 2.x was never compiled, and what makes a record of a FITS key there is still missing.
namespace vscindi {

#define VSCINDI_NEW_PROPERTIES (INDI_VERSION_MAJOR >= 2)

#if VSCINDI_NEW_PROPERTIES
#define VSCINDI_FITS_ARGUMENTS INDI::CCDChip *chip, std::vector<INDI::FITSRecord> &records
#define VSCINDI_FITS_PASSED chip, records

inline void Show(INDI::PropertyNumber &property, IPState state, double value)
{
    property[0].setValue(value);
    property.setState(state);
    property.apply();
}
inline void SetRange(INDI::PropertyNumber &property, double min, double max)
{
    property[0].setMinMax(min, max);
}
inline void SetReadOnly(INDI::PropertyNumber &property, bool readOnly)
{
    property.setPermission(readOnly ? IP_RO : IP_RW);
}
inline void Show(INDI::PropertyNumber &property, IPState state)
{
    property.setState(state);
    property.apply();
}
inline void SetText(INDI::PropertyText &property, size_t index, const char *text)
{
    property[index].setText(text);
}
inline const char *TextAt(INDI::PropertyText &property, size_t index)
{
    return property[index].getText();
}
inline void Send(INDI::PropertyText &property)
{
    property.setState(IPS_OK);
    property.apply();
}
inline bool IsOn(INDI::PropertySwitch &property, size_t index)
{
    return property[index].getState() == ISS_ON;
}
inline double ValueOf(INDI::PropertyNumber &property)
{
    return property[0].getValue();
}
#else
#define VSCINDI_FITS_ARGUMENTS INDI::CCDChip *chip
#define VSCINDI_FITS_PASSED chip

inline void Show(INumberVectorProperty &property, IPState state, double value)
{
    property.np[0].value = value;
    property.s = state;
    IDSetNumber(&property, nullptr);
}
inline void SetRange(INumberVectorProperty &property, double min, double max)
{
    property.np[0].min = min;
    property.np[0].max = max;
}
inline void SetReadOnly(INumberVectorProperty &property, bool readOnly)
{
    property.p = readOnly ? IP_RO : IP_RW;
}
inline void Show(INumberVectorProperty &property, IPState state)
{
    property.s = state;
    IDSetNumber(&property, nullptr);
}
inline void SetText(ITextVectorProperty &property, size_t index, const char *text)
{
    IUSaveText(&property.tp[index], text);
}
inline const char *TextAt(ITextVectorProperty &property, size_t index)
{
    const char *const text = property.tp[index].text;
    return text ? text : "";
}
inline void Send(ITextVectorProperty &property)
{
    property.s = IPS_OK;
    IDSetText(&property, nullptr);
}
inline bool IsOn(ISwitchVectorProperty &property, size_t index)
{
    return property.sp[index].s == ISS_ON;
}
inline double ValueOf(INumberVectorProperty &property)
{
    return property.np[0].value;
}
#endif

} // namespace vscindi
