"""Loads libZelDemo.so, whose static initialisers register the Demo types.

The library is looked for in $ZEL_BUILD_DIR/lib (set by build/zelpython),
else next to the _Zel module. It is loaded with RTLD_GLOBAL so that the
types share the runtime's registry with _Zel.
"""
import ctypes
import os


def _candidates():
    build = os.environ.get('ZEL_BUILD_DIR')
    if build:
        yield os.path.join(build, 'lib', 'libZelDemo.so')
    try:
        import _Zel
        yield os.path.join(os.path.dirname(os.path.abspath(_Zel.__file__)), 'libZelDemo.so')
    except ImportError:
        pass


def _load():
    tried = []
    for path in _candidates():
        if os.path.exists(path):
            return path, ctypes.CDLL(path, ctypes.RTLD_GLOBAL)
        tried.append(path)
    raise ImportError('libZelDemo.so not found (looked in: %s)' % (', '.join(tried) or 'nowhere'))


libraryPath, library = _load()
