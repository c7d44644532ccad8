"""The Zel framework's Python package.

A Pythonic layer over `_Zel`: proxies that carry their `_Zel.GifPtr` in
`ptr_` (so every `_Zel` conversion accepts them back), types by name,
attribute and clock notifiees, and the activity loop. Errors are the
module's own; nothing here translates them.
"""


class PermissionError(Exception):
    """A framework permission refusal (raised by _Zel)."""


import weakref  # noqa: E402

import _Zel  # noqa: E402  (after PermissionError: _Zel looks it up in this package)
import _ZelProxy  # noqa: E402

_GifPtr = _Zel.GifPtr

# Proxy class per framework type name; filled lazily by _proxyClass.
_classes = {}


def _proxyClass(typeName):
    cls = _classes.get(typeName)
    if cls is None:
        cls = Type(typeName).proxyClass
    return cls


def _wrap(r):
    """A GifPtr becomes a proxy of its type; anything else is returned as is."""
    if type(r) is _GifPtr:
        cls = _classes.get(r.typeName()) or _proxyClass(r.typeName())
        return cls(r)
    return r


def _ptrOf(obj):
    return obj.ptr_ if isinstance(obj, Object) else obj


class Object(object):
    """Base of every proxy; a subclass per framework type adds its attributes."""
    __slots__ = ('ptr_',)
    _type_ = None
    _isValue_ = False
    _fullName_ = None

    def __init__(self, ptr):
        self.ptr_ = ptr

    def __repr__(self):
        p = self.ptr_
        if self._isValue_:
            return p.strRep()
        if self._fullName_ is not None:
            return '<%s %s>' % (p.typeName(), p.attributeSingleton(self._fullName_))
        return '<%s %s>' % (p.typeName(), p.strRep())

    def __eq__(self, other):
        if not isinstance(other, Object):
            return NotImplemented
        a, b = self.ptr_, other.ptr_
        if self._isValue_ or other._isValue_:
            return a.typeName() == b.typeName() and a.strRep() == b.strRep()
        return a.ptr == b.ptr

    def __ne__(self, other):
        eq = self.__eq__(other)
        return eq if eq is NotImplemented else not eq

    def __hash__(self):
        if self._isValue_:
            return self.ptr_.hash()
        return hash(self.ptr_.ptr)

    def __dir__(self):
        return sorted(self._type_.attrs)


class Collection(_ZelProxy.CollectionView):
    """A dict-like view of a keyed collection attribute of one object.

    `view[k]`, `view[k] = v`, `del view[k]`, `k in view`, `len(view)`,
    keys(), values(), items() and the iterators are native
    (_ZelProxy.CollectionView): the same calls of ptr_ as methods here
    made, without a Python frame, and bulk reads take the activity lock
    once per batch of members.
    """
    __slots__ = ()
    _wrap_ = staticmethod(_wrap)

    def __init__(self, ptr, attr):
        self.ptr_ = ptr
        self.attr_ = attr

    def __repr__(self):
        return '<%s.%s collection of %d>' % (self.ptr_.typeName(), self.attr_.name, len(self))

    def get(self, key, default=None):
        try:
            return self[key]
        except KeyError:
            return default

    def add(self, value):
        """Appends to a collection that chooses its own keys; returns the member it made, if any."""
        return _wrap(self.ptr_.attributeAdd(self.attr_, value))

    def newMember(self, *args):
        """Instantiates a member from its constructor arguments and returns it."""
        a = self.attr_
        if a.hasAutomanagedKey:
            return _wrap(self.ptr_.attributeAdd(a, args))
        return _wrap(self.ptr_.attributeCollectionIs(a, None, args))


class Queue(_ZelProxy.QueueView):
    """A queue attribute of one object: add at the back, remove from the front.

    add, remove, len and iteration are native (_ZelProxy.QueueView).
    """
    __slots__ = ()
    _wrap_ = staticmethod(_wrap)

    def __init__(self, ptr, attr):
        self.ptr_ = ptr
        self.attr_ = attr

    def __repr__(self):
        return '<%s.%s queue of %d>' % (self.ptr_.typeName(), self.attr_.name, len(self))


def _singletonProperty(a):
    # Native: reads, writes and deletes go from the proxy's ptr_ straight to
    # attributeSingleton / attributeSingletonIs / attributeSingletonDel,
    # with GifPtr results wrapped by _wrap.
    return _ZelProxy.SingletonAttr(a, Object, _wrap)


def _collectionProperty(a, view):
    # Native: reading it on a proxy makes the view without a Python call;
    # the property does the rest (reads on the class, sets, deletes).
    def get(self):
        return view(self.ptr_, a)
    return _ZelProxy.CollectionAttr(a, Object, view, property(get))


def _method(a):
    def call(self, *args):
        r = self.ptr_.attributeFunction(a, args)
        return r if type(r) is not _GifPtr else _wrap(r)
    call.__name__ = a.name
    return call


class Type(object):
    """A framework type by name; one instance per name. Calling it constructs."""
    _cache = {}

    def __new__(cls, name):
        t = cls._cache.get(name)
        if t is None:
            node = _Zel.typeNode(name)
            t = object.__new__(cls)
            t.name = node.fullTypeName
            t.node = node
            t._proxyClass = None
            t._attrs = None
            cls._cache[name] = t
            cls._cache[t.name] = t
        return t

    def __init__(self, name):
        pass

    def __repr__(self):
        return 'Zel.Type(%r)' % self.name

    def __call__(self, *args):
        return _wrap(_Zel.newGenericIf(self.node, args or None))

    @property
    def attrs(self):
        """Every attribute by name (base types first, so derived ones win)."""
        out = self._attrs
        if out is None:
            chain, t = [], self.node
            while t is not None:
                chain.append(t)
                t = t.baseType
            out = {}
            for t in reversed(chain):
                for a in t.attributeQ:
                    out[a.name] = a
            self._attrs = out
        return out

    def attr(self, name):
        return self.attrs[name]

    @property
    def proxyClass(self):
        cls = self._proxyClass
        if cls is None:
            body = {'__slots__': (), '_type_': self, '_isValue_': bool(self.node.isValue),
                    '_fullName_': self.attrs.get('fullName') if self.node.isEntity else None}
            for name, a in self.attrs.items():
                if a.isFunction:
                    body[name] = _method(a)
                elif a.isQueueCollection or a.isStackCollection:
                    body[name] = _collectionProperty(a, Queue)
                elif a.isCollection:
                    body[name] = _collectionProperty(a, Collection)
                else:
                    body[name] = _singletonProperty(a)
            cls = type(self.name.replace('::', '_'), (Object,), body)
            self._proxyClass = cls
            _classes[self.name] = cls
        return cls


def root():
    """The process-wide root directory."""
    return _wrap(_Zel.globalDir())


def singleton(typeName):
    return _wrap(_Zel.singleton(typeName))


def new(typeName, *args):
    return Type(typeName)(*args)


def run(seconds):
    """Runs the activity loop for that many seconds."""
    _Zel.activityManagerExecTimeIs(float(seconds))


_clock = []


def _clockPtr():
    if not _clock:
        _clock.append(_Zel.singleton("Zel::Clock"))
        _clock.append(_Zel.typeNode("Zel::Clock").attr("now"))
    return _clock[0]


def now():
    """The clock's time, the time base of timers."""
    c = _clockPtr()
    return c.attributeSingleton(_clock[1])


class Notifiee(object):
    """Calls handler(name, value) on changes of obj's attributes while open.

    The native notifiee holds only a closure that reaches this object
    through a weak reference; this object holds the handler. So a handler
    may keep its Notifiee (itself, or through the globals it runs in) and
    the two still go, with the native notifiee, once nobody else holds them.
    """

    def __init__(self, obj, handler, attrs=None, activity=None):
        self._handler = handler
        me = weakref.ref(self)

        def cb(name, value):
            n = me()
            h = n._handler if n is not None else None
            if h is not None:
                h(name, value if type(value) is not _GifPtr else _wrap(value))
        self._handle = _Zel.handle(cb)
        # With a filter, the notifiee is made and filtered under the activity
        # lock: a change made by another thread in between would otherwise
        # reach the handler whatever its attribute.
        took = attrs is not None and _Zel.acquireActivityLock()
        try:
            n = _ptrOf(obj).newNotifiee(self._handle, _ptrOf(activity))
            if attrs is not None:
                base = Type("Zel::PyGenericIfNotifieeBase")
                n.attributeSingletonIs(base.attr("filtered"), True)
                for name in attrs:
                    n.attributeCollectionIs(base.attr("filterAttr"), name, True)
        finally:
            if took:
                _Zel.releaseActivityLock()
        self.notifiee = _wrap(n)

    def close(self):
        # Clearing the handler stops calls even if someone else still holds
        # the notifiee.
        self._handler = None
        self.notifiee = None
        self._handle = None


def notifiee(obj, handler, attrs=None, activity=None):
    return Notifiee(obj, handler, attrs, activity)


class Timer(object):
    """Calls handler() whenever the clock reaches the time set by at()/after().

    Held as a Notifiee is: the handler may keep its Timer to re-arm it.
    """

    def __init__(self, handler, at=None, activity=None):
        self._handler = handler
        # The clock notifiee calls once at creation; that call is only
        # wanted when no time is given.
        self._quiet = at is not None
        me = weakref.ref(self)

        def cb():
            t = me()
            if t is None:
                return
            if t._quiet:
                t._quiet = False
                return
            h = t._handler
            if h is not None:
                h()
        self._handle = _Zel.handle(cb)
        n = _Zel.newGenericIf(Type("Zel::PyClockNotifiee").node,
                              (_ptrOf(activity), _clockPtr(), self._handle))
        self.notifiee = _wrap(n)
        if at is not None:
            self.at(at)

    def at(self, t):
        if self.notifiee is None:
            raise ValueError("the timer is closed")
        self.notifiee.timeMinProxy = float(t)

    def after(self, seconds):
        self.at(now() + seconds)

    def close(self):
        self._handler = None
        self.notifiee = None
        self._handle = None


def timer(handler, at=None, activity=None):
    return Timer(handler, at, activity)
