"""The capture library through its public interface, as the module calls it."""
import ctypes

import numpy as np

BLOCK = 512


class _Config(ctypes.Structure):
    _fields_ = [(name, ctypes.c_uint32) for name in ("sample_rate", "block_size", "mode", "extra")]


class _Buffer(ctypes.Structure):
    _fields_ = [("channel_count", ctypes.c_uint32), ("reserved", ctypes.c_uint32), ("sample_stride_bytes", ctypes.c_uint32),
                ("channels", ctypes.POINTER(ctypes.c_void_p))]


class CaptureLibrary:
    def __init__(self, path):
        self._library = ctypes.CDLL(path)
        self._library.bcap_query_memory.restype = ctypes.c_uint32
        self._library.bcap_query_scratch.restype = ctypes.c_uint32

    def memory_bytes(self, sample_rate_hz=48000, mode=0):
        """(persistent, scratch)"""
        config = ctypes.byref(_Config(sample_rate_hz, BLOCK, mode, 600))
        return self._library.bcap_query_memory(config), self._library.bcap_query_scratch(config)

    def table(self, name, bands=73):
        return list((ctypes.c_int32 * bands).in_dll(self._library, name))

    def record(self, mix, sample_rate_hz=48000, mode=0, tables=None, **parameters):
        """(2, samples) of full scale 1.0 -> the same, processed, the latency removed. parameters: rnn_enable=1 calls
        bcap_rnn_enable_set; every switch not named is off. tables: peq_band_gain=[...], nfm_band_energy=[...]."""
        config = _Config(sample_rate_hz, BLOCK, mode, 600)
        persistent, scratch = (ctypes.create_string_buffer(n) for n in self.memory_bytes(sample_rate_hz, mode))
        handle = ctypes.c_void_p()
        self._library.bcap_init(ctypes.byref(config), persistent, ctypes.byref(handle))
        off = dict.fromkeys(("lrc_enable", "hpf_enable", "pregain_enable", "rnn_enable", "postgain_enable"), 0)
        for name, value in {**off, "peq_amount": 0, "nfm_amount": 0, **parameters}.items():
            getattr(self._library, f"bcap_{name}_set")(handle, ctypes.c_int32(value))
        for name, values in (tables or {}).items():
            getattr(self._library, f"bcap_{name}_tuning_set")(handle, len(values), (ctypes.c_int32 * len(values))(*values))

        latency = self._library.bcap_latency_samples_get(mode)
        blocks = -(-(mix.shape[1] + latency) // BLOCK)
        pcm = np.zeros((blocks * BLOCK, 2), np.int16)
        pcm[:mix.shape[1]] = np.clip(np.rint(mix.T * 32768), -32768, 32767)
        for block in range(blocks):
            at = pcm.ctypes.data + block * BLOCK * 4
            channels = (ctypes.c_void_p * 2)(at, at + 2)
            buffer = _Buffer(2, 2, 4, ctypes.cast(channels, ctypes.POINTER(ctypes.c_void_p)))
            result = self._library.bcap_pre_process(handle, ctypes.byref(buffer), ctypes.byref(buffer), scratch)
            assert result == 0, result
        self._library.bcap_shutdown(handle)
        return (pcm[latency:latency + mix.shape[1]].T / 32768).astype(np.float32)
