import itertools
import os
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))  # the package in place

import zr_api  # noqa: E402
import zr_api.sim as sim  # noqa: E402

_serials = itertools.count(20004001)


@pytest.fixture(scope="session", autouse=True)
def data_folder(tmp_path_factory):
    zr_api.set_data_folder(str(tmp_path_factory.mktemp("zr")))
    sim.set_wait_scale(0.0)


@pytest.fixture
def mesa2():
    """A simulated Mesa2 with a quiet floor, its serial, detached afterwards."""
    serial = next(_serials)
    sim.attach("Mesa2", serial)
    sim.set_noise_floor(serial, -165.0)
    yield serial
    sim.detach(serial)
