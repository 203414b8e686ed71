#pragma once
// An arc cosine that gives the same bits on every system.
//
// The C libraries disagree in the last bit of acos for a few percent of all
// arguments (glibc and the Windows runtime do), and the compressed-mesh decoder
// compares arc cosines to pick the frame of every normal: one flipped
// comparison sends the traversal another way. This one is built from IEEE
// additions, multiplications, divisions and square roots only, which every
// target rounds alike, and returns the correctly rounded value: a fast
// evaluation within 2^-64 relative error (2^-67.7 at worst over millions of
// arguments) is accepted when its rounding is certain; the rest, about one
// argument in 350, is evaluated again in double-double arithmetic to about
// 2^-100. Correct rounding could fail only for a result within about 2^-100
// of a midpoint between doubles; even then every target gives the same bits.

namespace prc {

// acos(x) rounded to nearest for -1 <= x <= 1; NaN outside that range and for NaN.
double acosCorrectlyRounded(double x);

}  // namespace prc
