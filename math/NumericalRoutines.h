// Determinant, inverse, singular values and a root finder.
#pragma once

#include "../base/Export.h"
#include "FMatrix.h"

/// Determinant of a square matrix, by LU decomposition. A pivot that is exactly 0 counts as 1e-7, so a singular matrix
/// gives a small value that need not be 0; one with a row of zeros gives the product of its diagonal.
KORVANE_API float determinant(const FMatrix& a);

/// Inverse of a square matrix. `ZeroException` where the determinant's absolute value is below 1e-7, and for a matrix
/// that is singular as far as floats can tell, whatever its determinant: in the decomposition of n rows a pivot is
/// exactly 0, or below n * 2^-23 times the largest element of its row. (Rows 1 2 3, 4 5 6, 7 8 9 leave a pivot of 1e-7,
/// which is the rounding of an exact 0.)
KORVANE_API FMatrix inv(const FMatrix& a);

/// Singular value decomposition a = U * diag(w) * V', for m rows and n columns of any number.
///
/// Returns the m rows of U, n doubles each; `w` gets n singular values, `v` the n rows of V, n doubles each. With
/// `sort` the singular values descend, the columns of U and V going with them. Without it values below 1e-7 are set to
/// 0, and so are their columns of U.
///
/// Where a singular value does not converge within 30 iterations, as with elements that are not finite, everything is
/// released, `w` and `v` become null and null is returned. Memory that cannot be had is a `MemException`.
///
/// The caller owns the result: `w`, each row and both row tables come from `new double[]` and `new double*[]`.
/// `d_FreeSVD` releases them.
///
/// Rotations use `pythag`, in single precision: U and V are orthogonal to about 1e-6, not to double precision.
KORVANE_API double** d_SVD(const FMatrix& a, double*& w, double**& v, bool sort);

/// Releases what `d_SVD` of a matrix of `rows` x `cols` returned; null pointers are skipped.
KORVANE_API void d_FreeSVD(double** u, int rows, double* w, double** v, int cols);

/// Pseudo-inverse, ncols() x nrows(). Every singular value that is not exactly 0 is inverted, however small. It is not
/// for matrices that may lack full rank: rounding leaves singular values of about 1e-7 where the exact ones are 0,
/// their inverses of 1e7 cover the result, and nothing says so. Give a tolerance for those. A decomposition that does
/// not converge is a `MemException`.
KORVANE_API FMatrix d_PseudoInv(const FMatrix& a);

/// The same, singular values that are not above `tolerance` times the largest one counting as 0: the least-squares
/// solution of least length for matrices of any rank. About 2^-23 times the larger of both dimensions suits elements
/// that are exact but for their rounding to float. A tolerance that is negative or NaN counts as 0.
KORVANE_API FMatrix d_PseudoInv(const FMatrix& a, double tolerance);

/// Always 0: the rank is not computed. The function is kept on purpose, for hosts link against it; to get a rank, count
/// the singular values of `d_SVD`.
KORVANE_API int rank(const FMatrix& a);

/// Length of the hypotenuse, without overflow on the way.
KORVANE_API float pythag(float a, float b);

/// The x with f(x, context) = target, by Brent's method.
///
/// A change of sign is looked for in [x0 - h, x0 + h], with h from 0.05 * x0 doubled until one is there. Where none
/// shows up within the range of floats, from x0 = 0 for example, the result is x0. The root is exact to 2^-22 times
/// max(|x|, 1); after 100 refinements the best x so far is returned.
KORVANE_API float findzero(float (*f)(float, int*), float x0, int* context, float target);
