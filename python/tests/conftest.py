import os
import subprocess

import pytest

import kelvane

SYNTH = os.environ["KELVANE_SYNTH_TOOL"]
EVAL = os.environ["KELVANE_EVAL_TOOL"]


def run(tool, *args):
    done = subprocess.run([tool, *map(str, args)], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr


@pytest.fixture(scope="session")
def make_pair(tmp_path_factory):
    """Pairs of kelvane-synth by their switches: (file a, file b, frame a, frame b)."""
    made = {}

    def make(*flow):
        if flow not in made:
            d = tmp_path_factory.mktemp("pair")
            a, b = d / "a.tif", d / "b.tif"
            run(SYNTH, *flow, "--size", 256, a, b, d / "truth.nc")
            made[flow] = (a, b, kelvane.load_image(a), kelvane.load_image(b))
        return made[flow]

    return make
