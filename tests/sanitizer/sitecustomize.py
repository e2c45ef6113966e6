"""Start-up of every interpreter that scripts/sanitize.sh runs, spawned ones included.

numpy, which the tests use, keeps what its initialisation allocates for the life of the process and never frees it. It
is imported here, while the interpreter starts, with leak detection paused, so that the leak report at exit names only
what was lost afterwards. The interpreter's free lists are emptied on both sides of the pause: numpy's objects then come
from fresh allocations, which the pause covers, and nothing allocated during the pause is handed out again to code that
runs later.
"""

import ctypes
import gc

_sanitizer = ctypes.CDLL(None)  # the runtime preloaded into the interpreter
gc.collect()
_sanitizer.__lsan_disable()
try:
    import numpy  # noqa: F401
except ImportError:
    pass
finally:
    _sanitizer.__lsan_enable()
gc.collect()
