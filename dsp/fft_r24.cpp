#include "dsp/fft_r24.h"

#include <cmath>
#include <utility>

#include "dsp/butterfly.h"

namespace {

constexpr double kQuarterPi = 0.7853981633974483;

// Loads the complex value whose real part is a[i] and whose imaginary part is a[i + 1].
template <typename T>
Complex<T> Load(const T* a, int i) {
    return {a[i], a[i + 1]};
}
template <typename T>
void Store(T* a, int i, Complex<T> v) {
    a[i] = v.re;
    a[i + 1] = v.im;
}

// Applies a butterfly to the four complex values at j, j + l, j + 2l and j + 3l.
template <typename T, typename Butterfly>
ORVANE_LANE_INLINE void Apply(T* a, int j, int l, Butterfly butterfly) {
    const Radix4<T> r =
        butterfly(Load(a, j), Load(a, j + l), Load(a, j + 2 * l), Load(a, j + 3 * l));
    Store(a, j, r.y0);
    Store(a, j + l, r.y1);
    Store(a, j + 2 * l, r.y2);
    Store(a, j + 3 * l, r.y3);
}

// Runs one radix-4 stage of span l. Its groups begin 4l apart.
template <typename T>
void Stage(int n, int l, T* a, const T* w) {
    const int m = 4 * l;
    const T u = w[2];
    for (int j = 0; j < l; j += 2) Apply(a, j, l, Untwiddled<T>);
    for (int j = m; j < m + l; j += 2)
        Apply(a, j, l, [u](auto... values) { return EighthTurn(values..., u); });
    size_t t = 2;
    for (int k = 2 * m; k < n; k += m, ++t) {
        const Twiddles<T> factors = GroupTwiddles(w, t);
        for (int j = k; j < k + l; j += 2)
            Apply(a, j, l, [&](auto... values) { return Twiddled(values..., factors); });
    }
}

// Runs all stages but the last, and returns the last stage's span.
template <typename T>
int AllButLastStage(int n, T* a, const T* w) {
    int l = 2;
    if (n > 8) {
        FFT_R24<T>::cft1st(n, a, w);
        l = 8;
        while (4 * l < n) {
            FFT_R24<T>::cftmdl(n, l, a, w);
            l *= 4;
        }
    }
    return l;
}

// Cosine and sine of step * j. The product is rounded to T; the functions compute in double.
template <typename T>
double CosineOf(T step, int j) {
    return std::cos(static_cast<double>(step * static_cast<T>(j)));
}
template <typename T>
double SineOf(T step, int j) {
    return std::sin(static_cast<double>(step * static_cast<T>(j)));
}

template <typename T>
void BuildTwiddles(int nw, int* ip, T* w) {
    ip[0] = nw;
    ip[1] = 1;
    if (nw <= 2) return;
    const int half = nw / 2;
    const T step = static_cast<T>(kQuarterPi / half);
    w[0] = 1;
    w[1] = 0;
    w[half] = static_cast<T>(CosineOf(step, half));
    w[half + 1] = w[half];
    for (int j = 2; j < half; j += 2) {
        const T x = static_cast<T>(CosineOf(step, j));
        const T y = static_cast<T>(SineOf(step, j));
        w[j] = x;
        w[j + 1] = y;
        w[nw - j] = y;
        w[nw - j + 1] = x;
    }
    FFT_R24<T>::bitrv2(nw, ip + 2, w);
}

template <typename T>
void BuildRealFactors(int nc, int* ip, T* c) {
    ip[1] = nc;
    if (nc <= 1) return;
    const int half = nc / 2;
    const T step = static_cast<T>(kQuarterPi / half);
    c[0] = static_cast<T>(CosineOf(step, half));
    c[half] = static_cast<T>(0.5) * c[0];
    for (int j = 1; j < half; ++j) {
        c[j] = static_cast<T>(0.5 * CosineOf(step, j));
        c[nc - j] = static_cast<T>(0.5 * SineOf(step, j));
    }
}

// Applies the step between the spectrum of n/2 complex values and that of n real values. `step` is
// RealForward or RealInverse.
template <typename T, typename Step>
void ApplyToSpectrum(int n, T* a, int nc, const T* c, Step step) {
    const int m = n / 2;
    const int ks = 2 * nc / m;
    int kk = 0;
    for (int j = 2; j < m; j += 2) {
        kk += ks;
        const T wkr = static_cast<T>(0.5) - c[nc - kk];
        const MirroredPair<T> r = step(Load(a, j), Load(a, n - j), wkr, c[kk]);
        Store(a, j, r.low);
        Store(a, n - j, r.high);
    }
}

size_t SquareRoot(uint32_t n) {
    size_t root = 0;
    while ((root + 1) * (root + 1) <= n) ++root;
    return root;
}

template <typename T>
void Exchange(T* a, int p, int q) {
    std::swap(a[p], a[q]);
    std::swap(a[p + 1], a[q + 1]);
}

}  // namespace

template <typename T>
FFT_R24<T>::FFT_R24(uint32_t transformLength) : length(transformLength) {
    if (!w.Allocate(2 * static_cast<size_t>(length))) return;
    ip.Allocate(SquareRoot(length) + 2);
}

template <typename T>
void FFT_R24<T>::bitrv2(int n, int* ip, T* a) {
    ip[0] = 0;
    int l = n;
    int m = 1;
    while (8 * m < l) {
        l /= 2;
        for (int j = 0; j < m; ++j) ip[m + j] = ip[j] + l;
        m *= 2;
    }
    const int s = 2 * m;
    if (8 * m == l) {
        for (int k = 0; k < m; ++k) {
            for (int j = 0; j < k; ++j) {
                const int p = 2 * j + ip[k];
                const int q = 2 * k + ip[j];
                Exchange(a, p, q);
                Exchange(a, p + s, q + 2 * s);
                Exchange(a, p + 2 * s, q + s);
                Exchange(a, p + 3 * s, q + 3 * s);
            }
            const int p = 2 * k + s + ip[k];
            Exchange(a, p, p + s);
        }
    } else {
        for (int k = 1; k < m; ++k) {
            for (int j = 0; j < k; ++j) {
                const int p = 2 * j + ip[k];
                const int q = 2 * k + ip[j];
                Exchange(a, p, q);
                Exchange(a, p + s, q + s);
            }
        }
    }
}

template <typename T>
void FFT_R24<T>::cft1st(int n, T* a, const T* w) {
    Stage(n, 2, a, w);
}

template <typename T>
void FFT_R24<T>::cftmdl(int n, int l, T* a, const T* w) {
    Stage(n, l, a, w);
}

template <typename T>
void FFT_R24<T>::cftfsub(int n, T* a, const T* w) {
    const int l = AllButLastStage(n, a, w);
    if (4 * l == n) {
        for (int j = 0; j < l; j += 2) Apply(a, j, l, Untwiddled<T>);
    } else {
        for (int j = 0; j < l; j += 2) {
            const Radix2<T> r = Summed(Load(a, j), Load(a, j + l));
            Store(a, j, r.y0);
            Store(a, j + l, r.y1);
        }
    }
}

template <typename T>
void FFT_R24<T>::cftbsub(int n, T* a, const T* w) {
    const int l = AllButLastStage(n, a, w);
    if (4 * l == n) {
        for (int j = 0; j < l; j += 2) Apply(a, j, l, Conjugated<T>);
    } else {
        for (int j = 0; j < l; j += 2) {
            const Radix2<T> r = SummedConjugated(Load(a, j), Load(a, j + l));
            Store(a, j, r.y0);
            Store(a, j + l, r.y1);
        }
    }
}

template <typename T>
void MakeFftTables(int n, int* ip, T* w) {
    if (n > 4 * ip[0]) BuildTwiddles(n / 4, ip, w);
    if (n > 4 * ip[1]) BuildRealFactors(n / 4, ip, w + ip[0]);
}

template <typename T>
void FFT_R24<T>::rdft(int n, int isgn, T* a, int* ip, T* w) {
    MakeFftTables(n, ip, w);
    const int nc = ip[1];
    const T* c = w + ip[0];
    if (isgn >= 0) {
        if (n > 4) {
            bitrv2(n, ip + 2, a);
            cftfsub(n, a, w);
            ApplyToSpectrum(n, a, nc, c, RealForward<T, T>);
        } else if (n == 4) {
            cftfsub(n, a, w);
        }
        const T difference = a[0] - a[1];
        a[0] += a[1];
        a[1] = difference;
    } else {
        a[1] = static_cast<T>(0.5) * (a[0] - a[1]);
        a[0] -= a[1];
        if (n > 4) {
            a[1] = -a[1];
            ApplyToSpectrum(n, a, nc, c, RealInverse<T, T>);
            a[n / 2 + 1] = -a[n / 2 + 1];
            bitrv2(n, ip + 2, a);
            cftbsub(n, a, w);
        } else if (n == 4) {
            cftfsub(n, a, w);
        }
    }
}

template void MakeFftTables(int n, int* ip, float* w);
template void MakeFftTables(int n, int* ip, double* w);
template class FFT_R24<float>;
template class FFT_R24<double>;
