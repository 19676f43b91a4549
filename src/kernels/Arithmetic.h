// Scalar arithmetic pipelines on float planes (C functions, return 0 on success):
//   add_scalar_float(lhs, rhs, output)          output := lhs + rhs
//   sub_scalar_float(lhs, rhs, output)          output := lhs - rhs
//   mul_scalar_float(lhs, rhs, output)          output := lhs * rhs
//   sub0_scalar_float(lhs, rhs, output)         output := max(lhs - rhs, 0), NaN gives 0
//   sub_scalar_inplace_float(rhs, output)       output -= rhs
//   sub0_float(lhs, rhs, output)                output := max(lhs - rhs, 0) of two planes
// Planes are bound with kernels/Buffers.h. Each result is one IEEE operation.
#pragma once
#include "add_scalar_float.h"
#include "mul_scalar_float.h"
#include "sub0_float.h"
#include "sub0_scalar_float.h"
#include "sub_scalar_float.h"
#include "sub_scalar_inplace_float.h"
