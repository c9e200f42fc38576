"""The library's Fourier transforms against NumPy's, through ctypes: every length 1..4096.

The library's forward kernel is e^(+i 2 pi jk / N), NumPy's e^(-i ...): the forward complex
transform equals N * ifft, the inverse equals fft, both unscaled."""
import ctypes
import sys

import numpy as np

lib = ctypes.CDLL(sys.argv[1])
fp = ctypes.POINTER(ctypes.c_float)
for name in ("ILdfft1x", "ILifft1x", "ILdfft1f", "ILifft1f"):
    getattr(lib, name).argtypes = [fp, fp, ctypes.c_int]
    getattr(lib, name).restype = ctypes.c_int
lib.ILqft.argtypes = [fp, fp, ctypes.c_int]

rng = np.random.default_rng(1)
failures = []


def close(got, want, what):
    scale = max(1.0, float(np.max(np.abs(want))))
    err = float(np.max(np.abs(got - want))) / scale
    if err > 1e-5:
        failures.append(f"{what}: relative error {err:.2e}")


def call(fn, data, room):
    out = np.zeros(room, dtype=np.float32)
    src = np.ascontiguousarray(data, dtype=np.float32)
    n = fn(out.ctypes.data_as(fp), src.ctypes.data_as(fp), len(data) // 2 if fn in (lib.ILdfft1x, lib.ILifft1x) else len(data))
    return out, n


def pow2(n):
    p = 1
    while p < n:
        p *= 2
    return p


for n in range(1, 4097):
    z = (rng.standard_normal(n) + 1j * rng.standard_normal(n)).astype(np.complex64)
    inter = np.empty(2 * n, dtype=np.float32)
    inter[0::2], inter[1::2] = z.real, z.imag
    N = pow2(2 * n) // 2
    padded = np.zeros(N, dtype=np.complex128)
    padded[:n] = z
    for fn, want, what in ((lib.ILdfft1x, np.fft.ifft(padded) * N, "ILdfft1x"), (lib.ILifft1x, np.fft.fft(padded), "ILifft1x")):
        out, m = call(fn, inter, 2 * N)
        if m != N:
            failures.append(f"{what} n={n}: length {m}, not {N}")
        close(out[0::2] + 1j * out[1::2], want, f"{what} n={n}")

    x = rng.standard_normal(n).astype(np.float32)
    R = max(2, pow2(n))
    spec = np.conj(np.fft.rfft(np.pad(x.astype(np.float64), (0, R - n))))
    out, m = call(lib.ILdfft1f, x, R)
    want = np.empty(R)
    want[0], want[1] = spec[0].real, spec[R // 2].real
    want[2::2], want[3::2] = spec[1:R // 2].real, spec[1:R // 2].imag
    close(out, want, f"ILdfft1f n={n}")
    back, _ = call(lib.ILifft1f, out, R)
    close(back[:n], x, f"ILifft1f after ILdfft1f n={n}")

    if n & (n - 1) == 0:  # ILqft: powers of two, in place and not
        out = np.zeros(2 * n, dtype=np.float32)
        lib.ILqft(out.ctypes.data_as(fp), inter.ctypes.data_as(fp), n)
        close(out[0::2] + 1j * out[1::2], np.fft.ifft(z.astype(np.complex128)) * n, f"ILqft n={n}")
        same = inter.copy()
        lib.ILqft(same.ctypes.data_as(fp), same.ctypes.data_as(fp), n)
        close(same, out, f"ILqft in place n={n}")

for f in failures[:20]:
    print(f)
print(f"{4096 - len(set(f.split(' n=')[1].split(':')[0] for f in failures))} passed, "
      f"{len(set(f.split(' n=')[1].split(':')[0] for f in failures))} failed")
sys.exit(1 if failures else 0)
