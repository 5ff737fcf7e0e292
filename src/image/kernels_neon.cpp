// Compiled for NEON, run only where the processor has it.
#define VSCCAM_KERNELS kNeonKernels
#define VSCCAM_KERNELS_NAME "NEON"
#include "image/kernels.inl"
