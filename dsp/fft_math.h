// Butterfly and spectrum-split arithmetic of the Kiss FFT build this library
// reproduces, written once for any value type that has +, - and * (float,
// or a GCC vector of floats, where every lane does the float's work).
//
// The forms below are those of the distributed libkissfft-float binary, which
// is compiled with reassociation allowed: a difference of two products added
// to a third value is evaluated as (x + p) - q rather than x + (p - q), and a
// few sums are commuted. Each line gives the operand order that binary uses,
// so that results agree bit for bit. Included by the plain and the vector
// translation units; everything here has internal linkage on purpose, so
// that each unit keeps its own instruction set.
#pragma once

namespace ONDREL2 {
namespace {
namespace fftmath {

// Radix 4, one butterfly per lane. f0..f3 are the four legs (in/out),
// w1..w3 the leg twiddles.
template <class V>
inline void Radix4(V& f0r, V& f0i, V& f1r, V& f1i, V& f2r, V& f2i, V& f3r, V& f3i, V w1r, V w1i,
                   V w2r, V w2i, V w3r, V w3i, bool inverse) {
  const V s0r = w1r * f1r - w1i * f1i;
  const V s0i = f1r * w1i + w1r * f1i;
  const V a = f2r * w2r;
  const V b = w2i * f2i;
  const V s1i = f2i * w2r + f2r * w2i;
  const V c = f3r * w3r;
  const V d = f3i * w3i;
  const V s2i = f3r * w3i + w3r * f3i;
  const V s5r = (f0r + b) - a;
  const V s5i = f0i - s1i;
  const V g0r = (f0r + a) - b;
  const V g0i = f0i + s1i;
  const V s3r = (s0r - d) + c;
  const V s3i = s0i + s2i;
  const V s4r = (s0r - c) + d;
  const V s4i = s0i - s2i;
  const V n4i = s2i - s0i;
  f2r = g0r - s3r;
  f2i = g0i - s3i;
  f0r = s3r + g0r;
  f0i = s3i + g0i;
  const V plusR = s4i + s5r;
  const V plusI = s5i - s4r;
  const V minusR = n4i + s5r;
  const V minusI = s4r + s5i;
  if (inverse) {
    f1r = minusR;
    f1i = minusI;
    f3r = plusR;
    f3i = plusI;
  } else {
    f1r = plusR;
    f1i = plusI;
    f3r = minusR;
    f3i = minusI;
  }
}

// Radix 2, one butterfly per lane.
template <class V>
inline void Radix2(V& f0r, V& f0i, V& f1r, V& f1i, V wr, V wi) {
  const V a = f1r * wr;
  const V b = f1i * wi;
  const V ti = f1r * wi + f1i * wr;
  const V r0 = f0r;
  f1r = (r0 + b) - a;
  f1i = f0i - ti;
  f0r = (a + r0) - b;
  f0i = ti + f0i;
}

// Forward real-spectrum split of bins k and N/2 - k from the half-size
// transform values pk (bin k) and nk (bin N/2 - k), super twiddle s.
template <class V>
inline void SplitForward(V pkr, V pki, V nkr, V nki, V sr, V si, V half, V& kr, V& ki, V& nr,
                         V& ni) {
  const V f1r = nkr + pkr;
  const V f1i = pki - nki;
  const V f2r = pkr - nkr;
  const V f2i = nki + pki;
  const V a = f2r * sr;
  const V b = si * f2i;
  const V twi = f2i * sr + f2r * si;
  kr = ((f1r + a) - b) * half;
  ki = (f1i + twi) * half;
  nr = ((f1r + b) - a) * half;
  ni = ((nki - pki) + twi) * half;
}

// Inverse join of bins k (fk) and N/2 - k (nk) into half-size transform
// values k and N/2 - k.
template <class V>
inline void JoinInverse(V fkr, V fki, V nkr, V nki, V sr, V si, V& kr, V& ki, V& nr, V& ni) {
  const V ekr = nkr + fkr;
  const V tr = fkr - nkr;
  const V ti = nki + fki;
  const V eki = fki - nki;
  const V a = tr * sr;
  const V b = si * ti;
  const V oki = sr * ti + tr * si;
  kr = (ekr + a) - b;
  ki = eki + oki;
  nr = (ekr + b) - a;
  ni = (nki - fki) + oki;
}

}  // namespace fftmath
}  // namespace
}  // namespace ONDREL2
