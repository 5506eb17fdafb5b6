"""The package against simulated instruments: results as numpy arrays at
the right frequency and level, time stamps, errors, warnings, and closing."""
import gc
import importlib.util
import os
import warnings

import numpy as np
import pytest

import zr_api
import zr_api.sim as sim
from zr_api import _native

HERE = os.path.dirname(os.path.abspath(__file__))


def _generator():
    spec = importlib.util.spec_from_file_location("gen", os.path.join(HERE, "..", "generate_bindings.py"))
    gen = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(gen)
    return gen


def test_every_export_of_the_headers_is_bound_and_reachable():
    gen = _generator()
    _, _, _, functions = gen.parse(open(h).read() for h in gen.HEADERS)
    exported = {name for name, _, _ in functions}
    assert exported == set(_native.FUNCTIONS), "python/generate_bindings.py must be run"
    assert gen.generate() == open(gen.OUT).read(), "python/generate_bindings.py must be run"
    missing = [name for name in exported if not callable(getattr(zr_api.lib, name, None))]
    assert not missing


def test_sweep_reads_a_tone_at_its_frequency_and_level(mesa2):
    sim.add_tone(mesa2, 1.0002e9, -30.0)
    with zr_api.open(mesa2) as dev:
        dev.configure_sweep(center=1e9, span=2e7, rbw=3e4, window="flattop", speed="normal")
        freqs, trace = dev.sweep()
        rbw, _, start, binsize, n = dev.sweep_parameters()
        assert trace.dtype == np.float32 and len(freqs) == len(trace) == n
        assert freqs[0] == start and np.isclose(freqs[1] - freqs[0], binsize)
        peak = int(np.argmax(trace))
        assert abs(freqs[peak] - 1.0002e9) <= binsize
        assert abs(trace[peak] - (-30.0)) < 0.5
        detail = dev.sweep(detail=True)
        assert detail.timestamp_ns > 1.7e18 and np.all(detail.trace_min <= detail.trace_max + 1e-3)


def test_iq_stream_tone_and_contiguous_times(mesa2):
    sim.add_tone(mesa2, 2.4e9 + 1e6, -25.0)
    with zr_api.open(mesa2) as dev:
        dev.configure_iq(center=2.4e9, decimation=4)
        rate, bandwidth = dev.iq_parameters()
        assert rate == 12.5e6 and bandwidth == pytest.approx(0.768 * rate)
        x, first = dev.iq(65536)
        assert x.dtype == np.complex64 and first.timestamp_ns > 1.7e18
        assert 10 * np.log10(np.mean(np.abs(x[4096:]) ** 2)) == pytest.approx(-25.0, abs=0.5)
        step = np.angle(np.sum(x[1:] * np.conj(x[:-1]))) / (2 * np.pi) * rate
        assert step == pytest.approx(1e6, abs=rate / 4096)
        # The next block starts where this one ended, to the nanosecond.
        buf = np.empty(65536, dtype=np.complex64)
        y, second = dev.iq(65536, out=buf)
        assert y is buf
        if not second.sample_loss:
            assert second.timestamp_ns - first.timestamp_ns == 65536 * 80
        # 16-bit samples times the correction are the same signal.
        dev.configure_iq(center=2.4e9, decimation=4, data_type="ci16")
        raw, _ = dev.iq(65536)
        assert raw.dtype == np.int16 and raw.shape == (65536, 2)
        z = (raw[:, 0] + 1j * raw[:, 1]) / 32768.0 * dev.iq_correction()
        assert 10 * np.log10(np.mean(np.abs(z[4096:]) ** 2)) == pytest.approx(-25.0, abs=0.5)


def test_audio_blocks_demodulate_am_and_switch_kind(mesa2):
    sim.add_am(mesa2, 7.1e6, -20.0, 1000.0, 0.5)
    with zr_api.open(mesa2) as dev:
        dev.configure_audio(7.1e6, kind="am", ref=0.0)
        a = dev.audio(16)[4000:]
        assert a.dtype == np.float32
        w = np.hanning(len(a))
        spectrum = np.abs(np.fft.rfft(a * w)) * 2 / w.sum()
        k = int(round(1000 * len(a) / dev.AUDIO_RATE))
        assert np.argmax(spectrum) == pytest.approx(k, abs=1)
        assert spectrum[k - 1:k + 2].max() == pytest.approx(0.5, abs=0.03)
        dev.set_audio_kind("usb")  # on the running stream
        with pytest.warns(zr_api.ZrWarning):  # the IF bandwidth is clamped to 250 kHz
            dev.configure_audio(7.1e6, kind="fm", if_bandwidth=1e6)


def test_vrt_packets_as_big_endian_words(mesa2):
    sim.add_tone(mesa2, 1.0001e9, -20.0)
    with zr_api.open(mesa2) as dev:
        dev.set_vrt(packet_size=256, stream_id=0xABCD)
        dev.configure_iq(center=1e9, decimation=8, ref=-20.0)
        ctx = dev.vrt_context()
        assert ctx[0] & 0xFFF0FFFF == 0x4160001C and ctx[1] == 0xABCD
        p = dev.vrt_packets(4)
        assert p.shape == (4, 262) and np.all(p[:, 0] & 0xFFFF == 262) and np.all(p[:, -1] >> 18 & 1)
        iq = (p[:, 5:-1] & 0xFFFF).astype(np.uint16).view(np.int16)
        # The tone is at the reference level: full scale.
        assert np.abs(iq[1:]).max() == pytest.approx(32768, rel=0.1)


def test_errors_raise_and_warnings_warn(mesa2):
    with pytest.raises(zr_api.ZrError) as e:
        zr_api.open(99999999)
    assert e.value.status == zr_api.ZrStatus.zrDeviceNotFoundErr and e.value.text
    with zr_api.open(mesa2) as dev:
        with pytest.raises(zr_api.ZrError) as e:
            dev.configure_iq(center=1e9, decimation=3)
        assert e.value.status == zr_api.ZrStatus.zrInvalidIQDecimationErr
        with pytest.raises(zr_api.ZrError) as e:
            dev.iq(16)  # no stream configured
        assert e.value.status == zr_api.ZrStatus.zrInvalidConfigurationErr
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            zr_api.lib.zrSetIQCenterFreq(dev.handle, 100.0)  # raw: no warning
            dev.configure_iq(center=100.0, decimation=64)    # below 9 kHz: clamped
        assert any(isinstance(w.message, zr_api.ZrWarning) and
                   w.message.status == zr_api.ZrStatus.zrSettingClamped for w in caught)


def test_a_device_let_go_is_closed(mesa2):
    dev = zr_api.open(mesa2)
    assert mesa2 not in [s for s, _ in zr_api.devices()]
    del dev
    gc.collect()
    assert mesa2 in [s for s, _ in zr_api.devices()]
    zr_api.open(mesa2).close()
