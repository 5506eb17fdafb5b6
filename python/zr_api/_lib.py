"""Finds and loads libzr_api.so (and libzr_sim.so beside it, when present),
and binds every exported function with its ctypes signature."""
import ctypes
import ctypes.util
import os

from . import _native

_HERE = os.path.dirname(os.path.abspath(__file__))


def _candidates(name):
    """Where a library may be, in the order it is looked for."""
    env = os.environ.get("ZR_API_LIBRARY")
    if env:
        folder = env if os.path.isdir(env) else os.path.dirname(env)
        if name == "libzr_api.so" and not os.path.isdir(env):
            yield env
        yield os.path.join(folder, name)
    yield os.path.join(_HERE, name)                                     # installed beside the package
    yield os.path.join(_HERE, "..", "..", "build", "lib", name)         # in place, in a checkout
    found = ctypes.util.find_library(name[3:-3])
    if found:
        yield found
    yield name + ".2"                                                   # the loader's path


def _load(name, mode):
    errors = []
    for path in _candidates(name):
        if os.sep in path and not os.path.exists(path):
            continue
        try:
            return ctypes.CDLL(path, mode=mode)
        except OSError as e:
            errors.append(str(e))
    raise OSError("%s not found (set ZR_API_LIBRARY to its path): %s" % (name, "; ".join(errors) or "nowhere"))


def _bind(cdll):
    for name, (restype, argtypes) in _native.FUNCTIONS.items():
        fn = getattr(cdll, name, None)
        if fn is None:
            continue
        fn.restype = restype
        if argtypes is not None:
            fn.argtypes = argtypes
    return cdll


class Library:
    """The C library with every export bound; `sim` is None without the
    simulator. Attributes are the C functions by their C names."""

    def __init__(self):
        # The simulator goes first, and global: the library binds to it by a
        # weak reference when both are loaded.
        try:
            self.sim = _bind(_load("libzr_sim.so", ctypes.RTLD_GLOBAL))
        except OSError:
            self.sim = None
        self.api = _bind(_load("libzr_api.so", ctypes.RTLD_GLOBAL))

    def __getattr__(self, name):
        for lib in (self.api, self.sim):
            if lib is not None and name in _native.FUNCTIONS:
                fn = getattr(lib, name, None)
                if fn is not None:
                    return fn
        raise AttributeError(name)


_library = None


def library():
    """The loaded library, loaded at first use."""
    global _library
    if _library is None:
        _library = Library()
    return _library
