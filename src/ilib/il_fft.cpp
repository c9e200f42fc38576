// One-dimensional Fourier transforms. The kernel is e^(+i 2 pi jk / n) for the forward transforms
// and neither complex transform scales: readers of existing spectra rely on both.
#include <cmath>
#include <complex>
#include <cstring>
#include <vector>

#include <vora/ilib.h>

namespace {

using cf = std::complex<float>;

// The twiddle table of the last length ILqft was given, and its scratch buffer.
thread_local std::vector<cf> tlsTwiddle;
thread_local std::vector<cf> tlsScratch;

void buildTwiddles(int n) {
  if (int(tlsTwiddle.size()) == n) return;
  tlsTwiddle.resize(n);
  const double step = 2 * M_PI / n;
  if (n % 2 == 0) {  // the half range, mirrored with the sine negated
    for (int k = 0; k <= n / 2; ++k) tlsTwiddle[k] = cf(float(cos(step * k)), float(sin(step * k)));
    for (int k = n / 2 + 1; k < n; ++k) tlsTwiddle[k] = std::conj(tlsTwiddle[n - k]);
  } else {
    for (int k = 0; k < n; ++k) tlsTwiddle[k] = cf(float(cos(step * k)), float(sin(step * k)));
  }
}

// out[k] = sum of in[j * stride] * w^(jk) over m values, w the m-th root from the n-entry table.
void qft(cf* out, const cf* in, int m, int stride, int n) {
  const int t = n / m;  // table step for this length
  if (m == 1) {
    out[0] = in[0];
  } else if (m == 2) {
    out[0] = in[0] + in[stride];
    out[1] = in[0] - in[stride];
  } else if (m == 4) {
    cf a = in[0], b = in[stride], c = in[2 * stride], d = in[3 * stride];
    cf s = a + c, u = a - c, v = b + d, r = (b - d) * cf(0, 1);
    out[0] = s + v;
    out[1] = u + r;
    out[2] = s - v;
    out[3] = u - r;
  } else if (m % 2 == 0) {
    const int h = m / 2;
    qft(out, in, h, stride * 2, n);           // even samples
    qft(out + h, in + stride, h, stride * 2, n);  // odd samples
    for (int k = 0; k < h; ++k) {
      cf e = out[k], o = out[k + h] * tlsTwiddle[size_t(k) * t];
      out[k] = e + o;
      out[k + h] = e - o;
    }
  } else {  // an odd length: the sums directly
    for (int k = 0; k < m; ++k) {
      cf s = 0;
      for (int j = 0; j < m; ++j) s += in[size_t(j) * stride] * tlsTwiddle[size_t(j) * k % m * t];
      out[k] = s;
    }
  }
}

int paddedLength(int values) {
  int p = 1;
  while (p < values) p <<= 1;
  return p;
}

// Iterative radix-2 transform of nn complex values in place: bit reversal, then butterflies
// whose angle step is sign * 2 pi / span, the twiddles advanced by the trigonometric recurrence.
void four1(float* data, int nn, int sign) {
  const int n = nn * 2;
  for (int i = 0, j = 0; i < n; i += 2) {
    if (j > i) {
      std::swap(data[j], data[i]);
      std::swap(data[j + 1], data[i + 1]);
    }
    int m = nn;
    while (m >= 2 && j >= m) {
      j -= m;
      m >>= 1;
    }
    j += m;
  }
  for (int mmax = 2; n > mmax; mmax <<= 1) {
    const int istep = mmax << 1;
    const double theta = sign * (2 * M_PI / mmax);
    double wtemp = sin(0.5 * theta);
    const double wpr = -2.0 * wtemp * wtemp, wpi = sin(theta);
    double wr = 1.0, wi = 0.0;
    for (int m = 0; m < mmax; m += 2) {
      for (int i = m; i < n; i += istep) {
        const int j = i + mmax;
        const double tr = wr * data[j] - wi * data[j + 1];
        const double ti = wr * data[j + 1] + wi * data[j];
        data[j] = float(data[i] - tr);
        data[j + 1] = float(data[i + 1] - ti);
        data[i] = float(data[i] + tr);
        data[i + 1] = float(data[i + 1] + ti);
      }
      wtemp = wr;
      wr = wr * wpr - wi * wpi + wr;
      wi = wi * wpr + wtemp * wpi + wi;
    }
  }
}

// Real transform of n (a power of two, at least 2) values through the complex one of n / 2.
void realft(float* data, int n, int sign) {
  double theta = M_PI / double(n >> 1);
  const double c1 = 0.5;
  double c2;
  if (sign == 1) {
    c2 = -0.5;
    four1(data, n >> 1, 1);
  } else {
    c2 = 0.5;
    theta = -theta;
  }
  double wtemp = sin(0.5 * theta);
  const double wpr = -2.0 * wtemp * wtemp, wpi = sin(theta);
  double wr = 1.0 + wpr, wi = wpi;
  for (int i = 1; i < (n >> 2); ++i) {
    const int i1 = 2 * i, i2 = i1 + 1, i3 = n - i1, i4 = i3 + 1;
    const double h1r = c1 * (data[i1] + data[i3]), h1i = c1 * (data[i2] - data[i4]);
    const double h2r = -c2 * (data[i2] + data[i4]), h2i = c2 * (data[i1] - data[i3]);
    data[i1] = float(h1r + wr * h2r - wi * h2i);
    data[i2] = float(h1i + wr * h2i + wi * h2r);
    data[i3] = float(h1r - wr * h2r + wi * h2i);
    data[i4] = float(-h1i + wr * h2i + wi * h2r);
    wtemp = wr;
    wr = wr * wpr - wi * wpi + wr;
    wi = wi * wpr + wtemp * wpi + wi;
  }
  const double h1r = data[0];
  if (sign == 1) {
    data[0] = float(h1r + data[1]);
    data[1] = float(h1r - data[1]);
  } else {
    data[0] = float(c1 * (h1r + data[1]));
    data[1] = float(c1 * (h1r - data[1]));
    four1(data, n >> 1, -1);
  }
}

// Copies count floats (unless in place) and zero-pads to padded.
void prepare(float* out, const float* in, int count, int padded) {
  if (out != in) memmove(out, in, sizeof(float) * size_t(count));
  std::fill(out + count, out + padded, 0.0f);
}

int complexTransform(float* out, const float* in, int n, int sign) {
  if (!out || !in || n < 1) return 0;
  const int floats = paddedLength(2 * n);
  prepare(out, in, 2 * n, floats);
  four1(out, floats / 2, sign);
  return floats / 2;
}

int realTransform(float* out, const float* in, int n, int sign) {
  if (!out || !in || n < 1) return 0;
  const int N = std::max(2, paddedLength(n));
  prepare(out, in, n, N);
  realft(out, N, sign);
  if (sign < 0)
    for (int i = 0; i < N; ++i) out[i] *= 2.0f / float(N);
  return N;
}

}  // namespace

extern "C" {

void ILqft(float* out, const float* in, int n) {
  if (!out || !in || n < 1) return;
  buildTwiddles(n);
  const cf* src = reinterpret_cast<const cf*>(in);
  cf* dst = reinterpret_cast<cf*>(out);
  if (out == in) {  // the recursion reads what it writes: through the scratch buffer
    if (int(tlsScratch.size()) < n) tlsScratch.resize(n);
    qft(tlsScratch.data(), src, n, 1, n);
    std::copy(tlsScratch.begin(), tlsScratch.begin() + n, dst);
  } else {
    qft(dst, src, n, 1, n);
  }
}

int ILdfft1x(float* out, const float* in, int n) { return complexTransform(out, in, n, 1); }
int ILifft1x(float* out, const float* in, int n) { return complexTransform(out, in, n, -1); }
int ILdfft1f(float* out, const float* in, int n) { return realTransform(out, in, n, 1); }
int ILifft1f(float* out, const float* in, int n) { return realTransform(out, in, n, -1); }

}  // extern "C"
