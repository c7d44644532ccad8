"""The Python stack of every thread of this process, as an operator reads it
(a stacks request, "?7", answers this text)."""

import sys
import threading
import traceback

from ZelCompat import formatLock


def text():
    """Per thread: 'Thread NAME (ident N)', then its frames, innermost last.
    Threads the threading module does not know (native ones that called
    into Python) are named by their ident only; a thread outside Python
    code at the moment says so."""
    frames = sys._current_frames()
    named = dict((t.ident, t.name) for t in threading.enumerate() if t.ident is not None)
    out = []
    # The main thread first, then the others by ident.
    for ident in sorted(set(frames) | set(named), key=lambda i: (named.get(i) != 'MainThread', i)):
        name = named.get(ident)
        out.append('Thread %s(ident %d)\n' % (name + ' ' if name else '', ident))
        frame = frames.get(ident)
        if frame is None:
            out.append('  (no Python frame: in native code)\n')
        else:
            with formatLock:
                out.extend(traceback.format_stack(frame))
        out.append('\n')
    return ''.join(out)
