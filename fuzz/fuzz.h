#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

/// What a target must define: it is called with one input after the other.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size);

/// What must hold for every input. A failure is reported like a crash, with the input.
inline void Must(bool holds)
{
    if (!holds)
        std::abort();
}
