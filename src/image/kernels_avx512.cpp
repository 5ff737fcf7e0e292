// Compiled for AVX-512 with permutations of bytes, run only where the processor has them.
#define VSCCAM_KERNELS kAvx512Kernels
#define VSCCAM_KERNELS_NAME "AVX-512"
#include "image/kernels.inl"
