import gc
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
import xarray

import kelvane
from conftest import EVAL, run

SINGLE = {"window": 32, "step": 16, "method": "single"}
DEFORM = {"window": 32, "step": 16, "method": "multigrid", "deform": True}


def switches(overrides):
    out = []
    for key, value in overrides.items():
        out += [f"--{key}"] if value is True else [f"--{key}", value]
    return out


def par_file(tmp_path):
    p = kelvane.Parameters()
    p["window"], p["step"], p["passes"] = 24, 8, 3
    p["method"] = "multipass"
    p.save(tmp_path / "run.par")
    return tmp_path / "run.par"


# The tool reads the files; evaluate gets the frames as arrays, as read,
# widened to float32, or as every other row of a taller array (one or both).
@pytest.mark.parametrize("layout", ["as read", "float32", "strided", "a strided"])
@pytest.mark.parametrize("overrides, by_file", [(SINGLE, None), (DEFORM, None),
                                                ({}, "path"), ({}, "object")])
def test_evaluate_is_the_tool_bit_for_bit(tmp_path, make_pair, layout, overrides, by_file):
    a, b, fa, fb = make_pair("--flow", "vortex")
    args, params = switches(overrides), None
    if by_file:
        args += ["-p", par_file(tmp_path)]
        params = args[-1] if by_file == "path" else kelvane.Parameters.load(args[-1])
    run(EVAL, *args, a, b, "-o", tmp_path / "tool.nc")
    if layout == "float32":
        fa, fb = fa.astype(np.float32), fb.astype(np.float32)
    if layout.endswith("strided"):
        fa = np.repeat(fa, 2, axis=0)[::2]
        fb = fb if layout == "a strided" else np.repeat(fb, 2, axis=0)[::2]
    got = kelvane.evaluate(fa, fb, params, **overrides)
    tool = kelvane.load_field(tmp_path / "tool.nc")
    for name in ("x", "y", "dx", "dy", "flags"):
        assert np.array_equal(getattr(got, name), getattr(tool, name)), name


def test_views_share_the_field_and_outlive_the_result(make_pair):
    _, _, a, b = make_pair("--dx", "1.5")
    result = kelvane.evaluate(a, b)
    views = [result.x, result.y, result.dx, result.dy, result.corr, result.flags]
    # One block of node records: the members interleave, none overlaps another.
    assert all(np.may_share_memory(v, result.dx) for v in views)
    assert not any(v.flags.writeable for v in views)
    dy, expected = views[3], views[3].copy()
    del result, views
    gc.collect()
    assert np.array_equal(dy, expected)  # a freed field would trip the sanitizer


def test_signs_rows_down_dy_up(make_pair):
    # 2 px down the rows is dy = -2; node rows grow downwards.
    _, _, a, b = make_pair("--dx", "0", "--dy", "2")
    r = kelvane.evaluate(a, b)
    assert np.median(r.dx) == pytest.approx(0, abs=0.02)
    assert np.median(r.dy) == pytest.approx(-2, abs=0.02)
    assert (np.diff(r.y[:, 0]) > 0).all() and (np.diff(r.x[0]) > 0).all()
    # A shear whose dx grows by 0.02 px a row: the slope along y, in row order.
    _, _, a, b = make_pair("--flow", "shear", "--gradient", "0.02")
    ds = kelvane.evaluate(a, b).to_xarray()
    assert ds.dx.dims == ("y", "x")
    assert float(ds.dx.differentiate("y").median()) == pytest.approx(0.02, abs=0.002)


def test_saved_fields_read_alike_by_xarray(tmp_path, make_pair):
    _, _, a, b = make_pair("--flow", "sine")
    kelvane.evaluate(a, b).save(tmp_path / "f.nc")
    field = kelvane.load_field(tmp_path / "f.nc")
    with xarray.open_dataset(tmp_path / "f.nc") as ds:
        # The file's rows go up from the bottom of the image.
        on_disk = ds.piv_data.values[0, ::-1]
    assert np.array_equal(on_disk[..., 0], field.dx) and np.array_equal(on_disk[..., 1], field.dy)


def test_par_round_trip(tmp_path):
    p = kelvane.Parameters.load(par_file(tmp_path))
    p["deform"], p["fit"] = True, 2
    p.save(tmp_path / "again.par")
    q = kelvane.Parameters.load(tmp_path / "again.par")
    assert {k: q[k] for k in q.keys()} == dict(window=24, step=8, method="multipass", passes=3,
                                               deform=True, fit=2)


def test_two_threads_get_the_results_and_logs_of_runs_alone(make_pair):
    runs = [(make_pair("--dx", "1.5")[2:], dict(DEFORM, step=16)),
            (make_pair("--flow", "vortex")[2:], dict(DEFORM, step=8))] * 2
    kelvane.set_debug_level(1)  # status lines, "... (N Nodes)" among them, go to the log
    try:
        alone = [kelvane.evaluate(*frames, **o) for frames, o in runs]
        with ThreadPoolExecutor(2) as pool:
            together = list(pool.map(lambda run: kelvane.evaluate(*run[0], **run[1]), runs))
    finally:
        kelvane.set_debug_level(0)
    for x, y in zip(together, alone):
        assert np.array_equal(x.dx, y.dx)
        assert "Nodes)" in x.log and [n for n in x.log.split("\n") if "Nodes)" in n] == \
            [n for n in y.log.split("\n") if "Nodes)" in n]


def test_ctrl_c_stops_the_evaluation():
    script = """if True:
        import os, signal, threading, numpy as np, kelvane
        a = np.random.default_rng(1).random((2048, 2048), np.float32)
        threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()
        try:
            kelvane.evaluate(a, np.roll(a, 2, 0), window=16, step=2)
        except KeyboardInterrupt:
            print("interrupted")"""
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True)
    assert done.stdout == "interrupted\n", done.stderr


Z = np.zeros((64, 64), np.uint8)


@pytest.mark.parametrize("a, b, kwargs, error, words", [
    (Z.astype(np.int32), Z, {}, ValueError, "int32: frames are uint8, uint16 or float32"),
    (Z[0], Z[0], {}, ValueError, "1 dimensions"),
    (Z[None], Z[None], {}, ValueError, "3 dimensions"),
    (Z[:0], Z[:0], {}, ValueError, "64x0 px: at least 2x2"),
    (Z, Z[:32], {}, ValueError, "the frames differ: 64x64 uint8 and 32x64"),
    (Z, Z, {"windw": 32}, ValueError, "unknown override windw"),
    (Z, Z, {"window": 2}, ValueError, "bad value for --window: 2"),
    (Z, Z, {"deform": 1}, ValueError, "deform takes True or False"),
    (Z, Z, {"mask": "/none/m.tif"}, FileNotFoundError, "/none/m.tif"),
    (Z, Z, {"params": "/none/p.par"}, FileNotFoundError, "/none/p.par"),
    (Z, Z, {"params": "object", "window": 128}, ValueError, "128x128 px window is larger"),
    (Z, Z, {}, kelvane.Error, "the first frame is uniform"),
])
def test_bad_input_is_named_and_leaves_nothing(tmp_path, monkeypatch, a, b, kwargs, error, words):
    monkeypatch.setenv("TMPDIR", str(tmp_path))
    if kwargs.get("params") == "object":
        kwargs["params"] = kelvane.Parameters()
    with pytest.raises(error, match=words) as caught:
        kelvane.evaluate(a, b, **kwargs)
    assert caught.value.code >= 0 and not any(tmp_path.iterdir())


@pytest.mark.parametrize("reader", [kelvane.load_image, kelvane.load_field,
                                    kelvane.Parameters.load,
                                    lambda path: kelvane.evaluate(Z, Z, mask=path)])
@pytest.mark.parametrize("content, error", [(None, FileNotFoundError), (b"\0\xff?" * 99, OSError)])
def test_unreadable_files(tmp_path, reader, content, error):
    path = tmp_path / "file"
    if content:
        path.write_bytes(content)
    with pytest.raises(error, match=str(path)) as caught:
        reader(path)
    # 28 is the library's "file not found"; the others say why the content is refused.
    assert (caught.value.code == 28) == (content is None) and caught.value.filename == str(path)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
def test_load_image_views_the_pixels_written(tmp_path, dtype):
    pixels = (np.arange(35).reshape(5, 7) * 997 % np.iinfo(dtype).max).astype(dtype)
    header = b"P5 7 5 %d\n" % np.iinfo(dtype).max
    (tmp_path / "f.pgm").write_bytes(header + pixels.astype(pixels.dtype.newbyteorder(">")).tobytes())
    image = kelvane.load_image(tmp_path / "f.pgm")
    assert image.dtype == dtype and np.array_equal(image, pixels) and not image.flags.writeable
