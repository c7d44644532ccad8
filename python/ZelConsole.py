"""The agent's side of a console (zelc -i): one Console per connection.

push() decides, as Python's interactive interpreter does, whether the
lines typed so far are a complete statement (codeop's rule: an incomplete
one waits for more lines; a block ends with an empty line), and runs it in
the connection's namespace: what it prints is answered, and an expression
statement prints its repr() (None prints nothing). complete() finds the
names and attributes that can follow the line typed so far, in the live
namespace; banner() tells whom the console talks to.

Runs unchanged on Python 2.7 and 3.
"""

import codeop
import keyword
import os
import sys
import traceback

from ZelCompat import PY3, TextIO, formatLock, toText

if PY3:
    import builtins
else:
    import __builtin__ as builtins

__all__ = ['Console', 'DONE', 'RAISED', 'MORE']

# push()'s outcomes: the native loop answers them OK, EX and MO.
DONE, RAISED, MORE = 0, 1, 2

_WORD_CHARS = frozenset('abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.')


def _format(etype, value, tb):
    """The traceback of a failed statement as the interactive interpreter shows it: the statement's frames and
    what it called, not the console's own (running it, or showing its value)."""
    here = _format.__code__.co_filename
    with formatLock:
        frames = [f for f in traceback.extract_tb(tb) if f[0] != here]
        head = ['Traceback (most recent call last):\n'] + traceback.format_list(frames) if frames else []
        return ''.join(head + traceback.format_exception_only(etype, value))


def _trailingWord(line):
    """The dotted name the line ends with ('' when it ends otherwise)."""
    start = len(line)
    while start > 0 and line[start - 1] in _WORD_CHARS:
        start -= 1
    word = line[start:]
    # A number ('1.5') or a leading dot is no name to complete.
    return '' if word[:1].isdigit() or word[:1] == '.' else word


class Console(object):
    """The console of one connection: its namespace, and the compiler that
    remembers the `from __future__` imports typed in it."""

    def __init__(self, namespace, stdoutLock, agentName):
        self.namespace = namespace
        self._stdoutLock = stdoutLock    # the server's: sys.stdout is swapped by one command at a time
        self._agentName = agentName
        self._compiler = codeop.CommandCompiler()
        # Imported here, as PyServer imports it: _LocalServer's users need not have it built.
        import _ZelServer
        self._runInterruptibly = _ZelServer.runInterruptibly

    def banner(self):
        return '%s, pid %d, Python %s' % (self._agentName, os.getpid(), sys.version.split()[0])

    def push(self, source):
        """(DONE, what it printed), (RAISED, the error) or (MORE, '')."""
        try:
            code = self._compiler(toText(source), '<console>', 'single')
        except (OverflowError, SyntaxError, ValueError, TypeError):   # TypeError: a null byte, on Python 2
            etype, value = sys.exc_info()[:2]
            return RAISED, ''.join(traceback.format_exception_only(etype, value))
        if code is None:
            return MORE, ''
        out = TextIO()
        try:
            self._run(code, out)
        except BaseException:   # SystemExit and KeyboardInterrupt too: the console goes on
            return RAISED, out.getvalue() + _format(*sys.exc_info())
        return DONE, out.getvalue()

    def _display(self, value):
        # As sys.displayhook, but `_` is kept in this connection's namespace:
        # the builtins are the whole agent's.
        if value is None:
            return
        sys.stdout.write(repr(value) + '\n')
        self.namespace['_'] = value

    def _run(self, code, out):
        with self._stdoutLock:
            saved = sys.stdout, sys.displayhook
            sys.stdout, sys.displayhook = out, self._display
            try:
                # Only the statement itself is interruptible (zelc's Ctrl-C): not this lock, nor the swap.
                self._runInterruptibly(code, self.namespace)
            finally:
                sys.stdout, sys.displayhook = saved

    def complete(self, line):
        """The word the line ends with, then each name that completes it, one a line ('' when the line ends
        with no name). Attributes come from dir(), which for the Zel package's proxies lists the framework
        attributes; names starting with '_' are offered once one is typed."""
        word = _trailingWord(toText(line))
        if not word:
            return ''
        head, dot, stem = word.rpartition('.')
        if dot:
            try:
                names = dir(self._resolve(head))
            except Exception:
                names = []
            if not stem.startswith('_'):
                names = [n for n in names if not n.startswith('_')]
        else:
            names = list(self.namespace) + dir(builtins) + keyword.kwlist
        found = sorted(set(head + dot + n for n in names if n.startswith(stem)))
        return '\n'.join([word] + found)

    def _resolve(self, dotted):
        """The object a dotted name stands for, looked up name by name: no call the line may hold is made."""
        first, rest = dotted.split('.')[0], dotted.split('.')[1:]
        if first in self.namespace:
            obj = self.namespace[first]
        else:
            obj = getattr(builtins, first)
        for name in rest:
            obj = getattr(obj, name)
        return obj
