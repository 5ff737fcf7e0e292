#pragma once

#include "doctor/facts.h"

#include <string>
#include <vector>

namespace vsctool {

enum class Verdict { kOk, kWarn, kFail };

/// "ok", "warn", "fail"
const char *Word(Verdict verdict);

/// What a check found.
struct Finding {
    Verdict verdict = Verdict::kOk;
    std::string found;
    std::string remedy; // a command; empty when all is well
    std::string id{};   // of the check
    std::string port{}; // of the camera that it is about
};

/// All checks that need no open camera, in the order in which they are to be read.
std::vector<Finding> Examine(const Facts &facts);

} // namespace vsctool
