// Compiled for SSE 4.2, run only where the processor has it.
#define VSCCAM_KERNELS kSse4Kernels
#define VSCCAM_KERNELS_NAME "SSE4"
#include "image/kernels.inl"
