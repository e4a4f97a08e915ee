#include "dsp/fft_kernel.h"

#include <algorithm>
#include <cmath>

#include "dsp/fft_avx2.h"
#include "dsp/fft_math.h"
#include "framework/alloc.h"

namespace ONDREL2 {
namespace {

using Cpx = RealFftPlan::Cpx;

// Fours first, then twos, then odd numbers; a remainder above the square
// root is taken whole.
void Factor(int n, std::vector<int>& out) {
  int p = 4;
  const double floorSqrt = std::floor(std::sqrt(static_cast<double>(n)));
  do {
    while (n % p != 0) {
      switch (p) {
        case 4: p = 2; break;
        case 2: p = 3; break;
        default: p += 2; break;
      }
      if (p > floorSqrt) p = n;
    }
    n /= p;
    out.push_back(p);
    out.push_back(n);
  } while (n > 1);
}

void Twiddle(Cpx* out, double phase) {
  out->r = static_cast<float>(std::cos(phase));
  out->i = static_cast<float>(std::sin(phase));
}

// Position of each leaf of the recursive decimation: the input index that
// lands at output index `at` before the butterflies run.
void BuildLeaves(const std::vector<int>& factors, size_t level, int at, int from, int stride,
                 std::vector<int>& order) {
  const int p = factors[level];
  const int m = factors[level + 1];
  for (int j = 0; j < p; ++j) {
    if (m == 1) {
      order[static_cast<size_t>(at + j)] = from + j * stride;
    } else {
      BuildLeaves(factors, level + 2, at + j * m, from + j * stride, stride * p, order);
    }
  }
}

// Lane order of the eight-wide kernel: loading eight interleaved values
// and separating real from imaginary parts within each 128-bit half leaves
// butterflies 0, 1, 4, 5, 2, 3, 6, 7 in lanes 0 .. 7.
constexpr int kWideOrder[8] = {0, 1, 4, 5, 2, 3, 6, 7};

void PlainStage(float* data, int radix, int m, int fstride, const Cpx* tw, bool inverse) {
  const size_t span = 2 * static_cast<size_t>(radix) * static_cast<size_t>(m);
  const size_t leg = 2 * static_cast<size_t>(m);
  for (int g = 0; g < fstride; ++g) {
    float* f = data + span * static_cast<size_t>(g);
    for (int u = 0; u < m; ++u) {
      float* p0 = f + 2 * static_cast<size_t>(u);
      const size_t t = static_cast<size_t>(u) * static_cast<size_t>(fstride);
      if (radix == 4) {
        float* p1 = p0 + leg;
        float* p2 = p1 + leg;
        float* p3 = p2 + leg;
        fftmath::Radix4(p0[0], p0[1], p1[0], p1[1], p2[0], p2[1], p3[0], p3[1], tw[t].r, tw[t].i,
                        tw[2 * t].r, tw[2 * t].i, tw[3 * t].r, tw[3 * t].i, inverse);
      } else {
        float* p1 = p0 + leg;
        fftmath::Radix2(p0[0], p0[1], p1[0], p1[1], tw[t].r, tw[t].i);
      }
    }
  }
}

template <class Put>
void SplitForwardPlain(const float* t, const Cpx* super, int half, Put put) {
  const float dcr = t[0];
  const float dci = t[1];
  put(0, dcr + dci, 0.0f);
  put(half, dcr - dci, 0.0f);
  for (int k = 1; k <= half / 2; ++k) {
    const size_t n = static_cast<size_t>(half - k);
    float kr, ki, nr, ni;
    fftmath::SplitForward(t[2 * k], t[2 * k + 1], t[2 * n], t[2 * n + 1], super[k - 1].r,
                          super[k - 1].i, 0.5f, kr, ki, nr, ni);
    // For an even half size bin N/4 is put twice; the second value stands.
    put(k, kr, ki);
    put(half - k, nr, ni);
  }
}

// `get(k)` gives bin k; of bins 0 and N/2 only the real part is read.
template <class Get>
void JoinInversePlain(const Cpx* super, int half, float* t, Get get) {
  const float first = get(0).r;
  const float last = get(half).r;
  t[0] = first + last;
  t[1] = first - last;
  for (int k = 1; k <= half / 2; ++k) {
    const Cpx fk = get(k);
    const Cpx nk = get(half - k);
    const size_t n = static_cast<size_t>(half - k);
    fftmath::JoinInverse(fk.r, fk.i, nk.r, nk.i, super[k - 1].r, super[k - 1].i, t[2 * k],
                         t[2 * k + 1], t[2 * n], t[2 * n + 1]);
  }
}

}  // namespace

RealFftPlan::~RealFftPlan() { Release(); }

void RealFftPlan::Release() {
  kiss_fftr_free(kissForward);
  kiss_fftr_free(kissInverse);
  kissForward = nullptr;
  kissInverse = nullptr;
  size = 0;
  half = 0;
}

bool RealFftPlan::Init(int n, bool vector) {
  Release();
  if (n <= 0 || (n & 1) != 0) return false;
  const int nc = n / 2;
  const bool vectorKernels = vector && fftavx2::Available();
  bool ownKernels = true;
  const bool ok = TryAllocating([&] {
    factors.clear();
    Factor(nc, factors);
    for (size_t s = 0; s < factors.size(); s += 2) {
      if (factors[s] != 2 && factors[s] != 4) ownKernels = false;
    }
    if (!ownKernels) {
      work.assign(static_cast<size_t>(nc + 1) * 2, 0.0f);
      return;
    }
    leafOrder.assign(static_cast<size_t>(nc), 0);
    BuildLeaves(factors, 0, 0, 0, 1, leafOrder);
    const size_t last = factors.size() - 2;
    fusedLeaf = vectorKernels && factors[last] == 2 && factors[last + 1] == 1 && nc % 16 == 0;
    leafIndex.clear();
    if (fusedLeaf) {
      // The group that reads input j (and j + nc/2), for every j.
      std::vector<int> groupOf(static_cast<size_t>(nc / 2), -1);
      for (int g = 0; g < nc / 2; ++g) {
        const int j = leafOrder[static_cast<size_t>(2 * g)];
        if (j >= nc / 2 || leafOrder[static_cast<size_t>(2 * g + 1)] != j + nc / 2) {
          fusedLeaf = false;
          break;
        }
        groupOf[static_cast<size_t>(j)] = g;
      }
      for (int block = 0; fusedLeaf && block < nc / 2; block += 8) {
        for (int lane = 0; lane < 8; ++lane) {
          leafIndex.push_back(4 * groupOf[static_cast<size_t>(block + kWideOrder[lane])]);
        }
      }
    }
    work.assign(static_cast<size_t>(nc) * 2, 0.0f);

    for (Direction* d : {&forward, &inverse}) {
      d->inverse = d == &inverse;
      d->twiddles.assign(static_cast<size_t>(nc), Cpx{0.0f, 0.0f});
      for (int i = 0; i < nc; ++i) {
        const double pi = 3.141592653589793238462643383279502884197169399375105820974944;
        double phase = -2 * pi * i / nc;
        if (d->inverse) phase *= -1;
        Twiddle(&d->twiddles[static_cast<size_t>(i)], phase);
      }
      d->super.assign(static_cast<size_t>(nc / 2), Cpx{0.0f, 0.0f});
      for (int i = 0; i < nc / 2; ++i) {
        double phase = -3.14159265358979323846264338327 * (static_cast<double>(i + 1) / nc + .5);
        if (d->inverse) phase *= -1;
        Twiddle(&d->super[static_cast<size_t>(i)], phase);
      }
      d->superRe.resize(d->super.size());
      d->superIm.resize(d->super.size());
      for (size_t i = 0; i < d->super.size(); ++i) {
        d->superRe[i] = d->super[i].r;
        d->superIm[i] = d->super[i].i;
      }
      d->stages.clear();
      d->tables.clear();
      int fstride = 1;
      for (size_t s = 0; s < factors.size(); s += 2) {
        Stage stage{factors[s], factors[s + 1], fstride, d->tables.size(), 0};
        if (vectorKernels) {
          if (stage.m % 8 == 0) {
            stage.lanes = 8;
          } else if (stage.m == 4) {
            stage.lanes = 4;
          } else if (stage.m == 2 && stage.radix == 4 && fstride % 2 == 0) {
            stage.lanes = 2;
          }
        }
        if (stage.lanes != 0) {
          const int step = stage.lanes == 2 ? 4 : stage.lanes;
          const int steps = stage.lanes == 2 ? 1 : stage.m / stage.lanes;
          for (int q = 1; q < stage.radix; ++q) {
            for (int b = 0; b < steps; ++b) {
              for (int part = 0; part < 2; ++part) {
                for (int lane = 0; lane < step; ++lane) {
                  int u = lane;
                  if (stage.lanes == 8) u = b * 8 + kWideOrder[lane];
                  if (stage.lanes == 4) u = b * 4 + lane;
                  if (stage.lanes == 2) u = lane % 2;
                  const Cpx w = d->twiddles[static_cast<size_t>(q) * u * fstride];
                  d->tables.push_back(part == 0 ? w.r : w.i);
                }
              }
            }
          }
        }
        d->stages.push_back(stage);
        fstride *= stage.radix;
      }
    }
  });
  if (!ok) return false;
  if (!ownKernels) {
    kissForward = kiss_fftr_alloc(n, 0, nullptr, nullptr);
    kissInverse = kiss_fftr_alloc(n, 1, nullptr, nullptr);
    if (kissForward == nullptr || kissInverse == nullptr) {
      Release();
      return false;
    }
  }
  useVector = vectorKernels;
  size = n;
  half = nc;
  return true;
}

void RealFftPlan::RunStage(const Direction& d, const Stage& s, float* data) {
  if (s.lanes != 0) {
    const float* table = d.tables.data() + s.table;
    if (s.radix == 4) {
      fftavx2::Radix4(data, s.fstride, s.m, s.lanes, table, d.inverse);
    } else {
      fftavx2::Radix2(data, s.fstride, s.m, s.lanes, table);
    }
    return;
  }
  PlainStage(data, s.radix, s.m, s.fstride, d.twiddles.data(), d.inverse);
}

void RealFftPlan::Complex(const Direction& d, const float* in, float* out) {
  size_t stages = d.stages.size();
  if (fusedLeaf) {
    fftavx2::LeafRadix2(in, out, leafIndex.data(), half / 2, d.twiddles[0].r, d.twiddles[0].i);
    --stages;
  } else {
    for (int i = 0; i < half; ++i) {
      const size_t from = 2 * static_cast<size_t>(leafOrder[static_cast<size_t>(i)]);
      out[2 * i] = in[from];
      out[2 * i + 1] = in[from + 1];
    }
  }
  for (size_t s = stages; s-- > 0;) RunStage(d, d.stages[s], out);
}

void RealFftPlan::Forward(const float* time, float* bins) {
  if (kissForward != nullptr) {
    kiss_fftr(kissForward, time, reinterpret_cast<kiss_fft_cpx*>(work.data()));
    std::copy(work.begin(), work.end(), bins);
    return;
  }
  Complex(forward, time, work.data());
  SplitForwardPlain(work.data(), forward.super.data(), half, [bins](int k, float re, float im) {
    bins[2 * k] = re;
    bins[2 * k + 1] = im;
  });
}

void RealFftPlan::ForwardPacked(const float* time, float* packed) {
  const int last = half;
  if (kissForward != nullptr) {
    kiss_fftr(kissForward, time, reinterpret_cast<kiss_fft_cpx*>(work.data()));
    packed[0] = work[0];
    packed[1] = work[2 * static_cast<size_t>(last)];
    std::copy(work.begin() + 2, work.begin() + 2 * last, packed + 2);
    return;
  }
  Complex(forward, time, work.data());
  SplitForwardPlain(work.data(), forward.super.data(), half,
                    [packed, last](int k, float re, float im) {
                      if (k == 0) {
                        packed[0] = re;
                      } else if (k == last) {
                        packed[1] = re;
                      } else {
                        packed[2 * k] = re;
                        packed[2 * k + 1] = im;
                      }
                    });
}

void RealFftPlan::ForwardSplit(const float* time, float* re, float* im) {
  const int last = half;
  if (kissForward != nullptr) {
    kiss_fftr(kissForward, time, reinterpret_cast<kiss_fft_cpx*>(work.data()));
    re[0] = work[0];
    im[0] = work[2 * static_cast<size_t>(last)];
    for (int k = 1; k < last; ++k) {
      re[k] = work[2 * static_cast<size_t>(k)];
      im[k] = work[2 * static_cast<size_t>(k) + 1];
    }
    return;
  }
  Complex(forward, time, work.data());
  if (useVector) {
    fftavx2::SplitForward(work.data(), forward.superRe.data(), forward.superIm.data(), half, re,
                          im);
    return;
  }
  SplitForwardPlain(work.data(), forward.super.data(), half,
                    [re, im, last](int k, float r, float i) {
                      if (k == 0) {
                        re[0] = r;
                      } else if (k == last) {
                        im[0] = r;
                      } else {
                        re[k] = r;
                        im[k] = i;
                      }
                    });
}

void RealFftPlan::Inverse(const float* bins, float* time) {
  if (kissInverse != nullptr) {
    std::copy(bins, bins + work.size(), work.begin());
    kiss_fftri(kissInverse, reinterpret_cast<const kiss_fft_cpx*>(work.data()), time);
    return;
  }
  JoinInversePlain(inverse.super.data(), half, work.data(), [bins](int k) {
    return Cpx{bins[2 * k], bins[2 * k + 1]};
  });
  Complex(inverse, work.data(), time);
}

void RealFftPlan::InversePacked(const float* packed, float* time) {
  const int last = half;
  if (kissInverse != nullptr) {
    work[0] = packed[0];
    work[1] = 0.0f;
    std::copy(packed + 2, packed + 2 * last, work.begin() + 2);
    work[2 * static_cast<size_t>(last)] = packed[1];
    work[2 * static_cast<size_t>(last) + 1] = 0.0f;
    kiss_fftri(kissInverse, reinterpret_cast<const kiss_fft_cpx*>(work.data()), time);
    return;
  }
  JoinInversePlain(inverse.super.data(), half, work.data(), [packed, last](int k) {
    if (k == 0) return Cpx{packed[0], 0.0f};
    if (k == last) return Cpx{packed[1], 0.0f};
    return Cpx{packed[2 * k], packed[2 * k + 1]};
  });
  Complex(inverse, work.data(), time);
}

void RealFftPlan::InverseSplit(const float* re, const float* im, float* time) {
  const int last = half;
  if (kissInverse != nullptr) {
    work[0] = re[0];
    work[1] = 0.0f;
    for (int k = 1; k < last; ++k) {
      work[2 * static_cast<size_t>(k)] = re[k];
      work[2 * static_cast<size_t>(k) + 1] = im[k];
    }
    work[2 * static_cast<size_t>(last)] = im[0];
    work[2 * static_cast<size_t>(last) + 1] = 0.0f;
    kiss_fftri(kissInverse, reinterpret_cast<const kiss_fft_cpx*>(work.data()), time);
    return;
  }
  if (useVector) {
    fftavx2::JoinInverse(re, im, inverse.superRe.data(), inverse.superIm.data(), half, work.data());
    Complex(inverse, work.data(), time);
    return;
  }
  JoinInversePlain(inverse.super.data(), half, work.data(), [re, im, last](int k) {
    if (k == 0) return Cpx{re[0], 0.0f};
    if (k == last) return Cpx{im[0], 0.0f};
    return Cpx{re[k], im[k]};
  });
  Complex(inverse, work.data(), time);
}

}  // namespace ONDREL2
