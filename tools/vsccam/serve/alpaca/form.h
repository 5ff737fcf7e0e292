#pragma once

#include "serve/http/message.h"

#include <cstdint>
#include <optional>
#include <string>

namespace vsctool::serve {

/// The pairs of a form's body. What is no form makes pairs of whatever it is.
Parameters ParseForm(std::string_view text);

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

} // namespace vsctool::serve
