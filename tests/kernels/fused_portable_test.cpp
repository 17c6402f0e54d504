// The portable exact fused multiply-add, and the scalar one again.
#define TARN_LEVEL fused_portable
#define TARN_PORTABLE
#include "kernels/fused_test.cpp"
