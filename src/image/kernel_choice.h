#pragma once

#include "image/kernels.h"

#include <vector>

namespace vsccam {

/// What this machine can run, the best first. The last one does nothing and so leaves everything to
/// the plain loops.
std::vector<const Kernels *> RunnableKernels();

/// The best of them, unless UseKernels named another.
const Kernels &CurrentKernels();

/// For comparisons; not while frames are processed.
void UseKernels(const Kernels &kernels);

} // namespace vsccam
