"""Holds a CF file of kelvane-eval against the native file of the same field.

cf_check.py NATIVE CF [M_S_PER_PIXEL]: exit status 0 when every check holds,
else the failed checks on stdout. With a factor the CF file is calibrated and
its u, v must be the native displacement times it (hand-computed truth).
"""
import sys

import numpy as np
from netCDF4 import Dataset

failed = []


def check(ok, what):
    if not ok:
        failed.append(what)


native, cf = Dataset(sys.argv[1]), Dataset(sys.argv[2])
factor = float(sys.argv[3]) if len(sys.argv) > 3 else None
for d in (native, cf):
    d.set_auto_mask(False)

check(cf.Conventions == "CF-1.8", "Conventions")
for name in ("history", "image_a", "image_b"):
    check(getattr(cf, name) == getattr(native, name), name + " differs from the native file")
check(cf.source == cf.image_a + "; " + cf.image_b, "source")
for name in ("u", "v", "flags", "corr"):
    check(cf[name].dimensions == ("y", "x"), name + " is not over (y, x)")

# Native variables: (depth, rows from the bottom, columns[, component]).
flags = native["piv_flags"][0].astype(int)
valid = ((flags & 1) != 0) & ((flags & 8) == 0)
check(valid.any() and not valid.all(), "the field should have valid and invalid nodes")
x, y = cf["x"][:], cf["y"][:]
check(np.all(np.diff(x) > 0) and np.all(np.diff(y) > 0), "x, y do not increase")
if factor is None:
    want = native["piv_data"][0]
    units, length, grid = "pixel", "pixel", native["piv_data"]
else:
    want = native["velocity"][0]
    units, length, grid = "m s-1", "mm", native["velocity"]
    check(native["velocity"].units == "m/s", "native velocity not in m/s")
    d = native["piv_data"][0]
    check(np.allclose(want[valid], d[valid] * factor, rtol=1e-5), "velocity is not dx * factor")
check(cf["u"].units == units and cf["v"].units == units, "units of u, v")
check(cf["x"].units == length and cf["y"].units == length, "units of x, y")
lo, hi = grid.coord_min, grid.coord_max
check(np.allclose(x, np.linspace(lo[0], hi[0], len(x)), rtol=1e-5), "x against coord_min/max")
check(np.allclose(y, np.linspace(lo[1], hi[1], len(y)), rtol=1e-5), "y against coord_min/max")
for c, name in enumerate(("u", "v")):
    got = cf[name][:]
    check(np.array_equal(np.isnan(got), ~valid), name + ": NaN not exactly at invalid nodes")
    check(np.array_equal(got[valid], want[..., c][valid]), name + " differs from the native file")
check(np.array_equal(cf["corr"][:], native["piv_correlation_coeff"][0]), "corr")
check(np.array_equal(cf["flags"][:], flags), "flags")
meanings = cf["flags"].flag_meanings.split()
check(len(meanings) == len(cf["flags"].flag_masks), "one meaning per mask")
for word in ("valid", "masked", "outlier", "replaced_by_interpolation"):
    check(word in meanings, "no flag meaning " + word)
check(dict(zip(meanings, cf["flags"].flag_masks)).get("valid") == 1, "valid is bit 1")

try:
    import xarray
except ImportError:
    xarray = None
if xarray is not None:
    ds = xarray.open_dataset(sys.argv[2])
    check(ds.u.dims == ("y", "x") and ds.v.dims == ("y", "x"), "xarray: u, v over (y, x)")
    check(np.array_equal(ds.u.isnull().values, ~valid), "xarray: u missing at invalid nodes")
    check(np.array_equal(ds.x.values, x), "xarray: x")

for f in failed:
    print("FAILED:", f)
sys.exit(1 if failed else 0)
