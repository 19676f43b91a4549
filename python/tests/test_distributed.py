"""qorimg.distributed on a local cluster of two worker processes."""
import os
import signal
import sys

import numpy as np
import pytest

distributed_pkg = pytest.importorskip("distributed")
sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "examples"))
from night import make_night  # noqa: E402

from qorimg import distributed  # noqa: E402
from conftest import bits  # noqa: E402


@pytest.fixture(scope="module")
def night(tmp_path_factory):
    return make_night(str(tmp_path_factory.mktemp("night")), frames=6, width=192, height=160, seed=3)


@pytest.fixture(scope="module")
def client():
    cluster = distributed_pkg.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                           dashboard_address=None)
    with distributed_pkg.Client(cluster) as c:
        yield c
    cluster.close()


@pytest.fixture(scope="module")
def single(night):
    lights, calibration, _ = night
    return distributed.reduce_local(lights, calibration, distributed.StackSettings(band_rows=8))


def test_cluster_stack_equals_the_single_machine_stack(night, client, single):
    lights, calibration, shifts = night
    out = distributed.reduce(client, lights, calibration, distributed.StackSettings(band_rows=8))
    assert out["placements"] == single["placements"] and out["norms"] == single["norms"]
    assert np.array_equal(bits(out["image"].to_array()), bits(single["image"].to_array()))
    # Registration found the generated shifts (frame = reference moved by them).
    for (dx, dy, _), (tx, ty) in zip(out["placements"], shifts):
        assert abs(dx - tx) < 0.3 and abs(dy - ty) < 0.3


def test_a_worker_killed_mid_run_leaves_the_result_unchanged(night, client, single):
    lights, calibration, _ = night
    pids = client.run(os.getpid)
    killed = {}

    def kill_one(done, total):
        # When the first band is in, the others are queued or running.
        if done == 1:
            killed["at"] = (done, total)
            os.kill(next(iter(pids.values())), signal.SIGKILL)

    out = distributed.reduce(client, lights, calibration, distributed.StackSettings(band_rows=8), progress=kill_one)
    assert killed["at"] == (1, 20)
    assert np.array_equal(bits(out["image"].to_array()), bits(single["image"].to_array()))
    client.wait_for_workers(2, timeout=60)
    assert set(client.run(os.getpid).values()) != set(pids.values())
