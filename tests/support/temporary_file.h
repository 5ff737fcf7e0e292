#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

namespace vsccam {

/// Path of a file for the tests of this process alone: several may run at the same time.
inline std::string TemporaryFile(const std::string &name)
{
    return testing::TempDir() + std::to_string(getpid()) + "_" + name;
}

} // namespace vsccam
