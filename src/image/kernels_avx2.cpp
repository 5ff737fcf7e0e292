// Compiled for AVX2, run only where the processor has it.
#define VSCCAM_KERNELS kAvx2Kernels
#define VSCCAM_KERNELS_NAME "AVX2"
#include "image/kernels.inl"
