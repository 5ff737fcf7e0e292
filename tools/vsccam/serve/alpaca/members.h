#pragma once

#include "serve/alpaca/device.h"
#include "serve/alpaca/form.h"

#include <nlohmann/json.hpp>

#include <span>

namespace vsctool::serve {

/// A call of a client.
struct AlpacaCall {
    AlpacaDevice &device;
    uint32_t client;
    const AlpacaParameters &parameters;
};

/// A property or method of the camera, by the word of its path.
struct AlpacaMember {
    const char *name;
    /// What it is; null: it cannot be asked for.
    nlohmann::ordered_json (*get)(const AlpacaCall &call);
    /// Sets it, or does it. What is left to do for the camera's thread is returned. Null: it cannot
    /// be set.
    Job::Work (*put)(const AlpacaCall &call) = nullptr;
    bool needsConnection = true;
};

/// All but the images.
std::span<const AlpacaMember> AlpacaMembers();

} // namespace vsctool::serve
