#pragma once

#include "serve/alpaca/device.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <span>
#include <string>

namespace vsctool::serve {

/// The parameters of a request, whose names may be written in any case. What is missing, or no
/// number, makes the request a bad one: Refusal with status 400.
class AlpacaParameters {
  public:
    explicit AlpacaParameters(const Parameters &parameters) : m_parameters(parameters) {}

    std::string Text(const char *name) const;
    int Whole(const char *name) const;
    double Number(const char *name) const;
    bool Flag(const char *name) const;
    /// 0 when it is not there.
    uint32_t Id(const char *name) const;

  private:
    std::optional<std::string> Find(const char *name) const;

    const Parameters &m_parameters;
};

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
