// Compiled for AVX-512 with bytes, words and permutations of bytes, run only where the processor has it.
#define VSCCAM_KERNELS kAvx512Kernels
#define VSCCAM_KERNELS_NAME "AVX-512"
#include "image/kernels.inl"
