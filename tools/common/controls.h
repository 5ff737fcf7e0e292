#pragma once

#include "control_list.h"

#include <vsccam.h>

#include <span>
#include <string>

namespace vsctool {

/// A control under the name that a person would type: its `word`. Those that the library exports no
/// number for are the limits of automatic exposure.
using NamedControl = vsccam::ControlFacts;
using vsccam::ControlUnit;

std::span<const NamedControl> AllControls();

/// Throws Failure, with the name that was meant or all of them, when there is none.
const NamedControl &FindControl(const std::string &name);

/// Of the open camera, in the library's figures.
struct ControlState {
    bool available = false;
    int value = 0;
    int min = 0;
    int max = 0;
    bool automatic = false;
    bool hasAutomatic = false;
};
ControlState StateOf(const NamedControl &control);

/// "20ms", "80 %", "-10.5 C", "on"
std::string FormatValue(const NamedControl &control, int value);

/// A control and what it is to be.
struct Setting {
    const NamedControl *control = nullptr;
    int value = 0;
    bool automatic = false; // then the value is the present one
};

/// "gain=200", "exposure=auto", "target-temp=-10C", "cooler=on". Throws Failure.
Setting ParseSetting(const std::string &text);

/// Throws Failure when the open camera does not have the control, or it cannot be that.
void Check(const Setting &setting);
/// Sets a control of the open camera, and throws like that.
void Apply(const Setting &setting);
/// The same, for a control by its name.
void Set(const std::string &name, int value);

} // namespace vsctool
