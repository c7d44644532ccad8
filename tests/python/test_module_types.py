"""The module's own types (ZelType, ZelAttr and GifPtr), its public names and its functions, and a long run of them
leaving no references or objects behind."""
import os
import sys
import tempfile
import unittest

import Zel  # noqa: F401
import ZelDemo  # noqa: F401
import _Zel
import _ZelTestHelper as helper
import children
from pyver import long
from zelsupport import drain

ENTITY = "Zel::Entity"


class Descriptors(unittest.TestCase):
    def test_one_wrapper_per_descriptor_and_its_properties(self):
        t, base, value = [_Zel.typeNode(n) for n in (ENTITY, "Zel::PtrInterface", "Zel::Name")]
        a = t.attr("name")
        self.assertEqual([x is a for x in (t.attr("name"), t.attr(a.attributeId), t.attr(long(a.attributeId)),
                                           t.attributeQ[0])], [True] * 4)
        self.assertEqual((_Zel.typeNode(ENTITY) is t, a.scope is t, {t: 1}[_Zel.typeNode(ENTITY)]), (True, True, 1))
        self.assertEqual((repr(t), repr(a), t.fullTypeName, type(t.size), t.isEntity, t.isValue, t.hasOwnPtrInterface,
                          t.valAttr, value.isValue, value.valAttr.name, t.baseType, base.baseType, t.isDerived(base),
                          base.isDerived(t), [x.name for x in t.attributeQ][:4], t.constructorArgNameQ,
                          t.constructorArgTypeQ, base.constructorArgNameQ),
                         ("type('Zel::Entity')", "type('Zel::Entity').attr('name')", ENTITY, long, True, False, True,
                          None, True, "value", base, None, True, False, ["name", "parent", "parentAttrName", "fullName"],
                          ("name",), ("Zel::Name",), ()))
        self.assertEqual((type(a.attributeId), a.memberType, a.name, a.indexType, a.indexAttr,
                          a.instantiatingIndexPosition, a.internalIndexName, a.instantiatingArgNameQ, a.readable,
                          a.writable, a.isImmutable, a.isCollection, a.hasInternalIndex, t.attr("parent").isPtr),
                         (int, value, "name", None, None, None, None, (), True, False, True, False, False, True))


class Handles(unittest.TestCase):
    def test_null_handles_print_and_refuse_operations(self):
        n = _Zel.nullGenericIf()
        self.assertEqual((type(n), str(n), repr(n)), (_Zel.GifPtr, "<null>", "<null>"))
        for op in (n.typeName, n.isConst, n.hash, n.strRep, lambda: n.ptr):
            self.assertRaises(IndexError, op)

    def test_entity_and_value_handles(self):
        e, v = helper.entity("small"), helper.intValue(7)
        r = repr(e)
        self.assertTrue(r.startswith("_Zel.GifPtr(0x") and r.endswith(",'Zel::Entity')"), r)
        address = r[len("_Zel.GifPtr("):-len(",'Zel::Entity')")]
        self.assertEqual((str(e), e.typeName(), e.isConst(), type(e.hash()), e.hash(), type(e.strRep()), e.ptr),
                         ("<_Zel.GifPtr to object of type 'Zel::Entity' at %s>" % address, "Zel::Entity", False, long,
                          e.hash(), str, helper.entityRawPtr(e)))
        self.assertEqual((v.typeName(), v.strRep()), ("int", "7"))
        self.assertNotEqual(v.hash(), helper.intValue(8).hash())

    def test_raw_pointer_converters(self):
        e = helper.entity("raw")
        # The flag is left as it was on success, set for None.
        self.assertEqual([helper.rawPtr(e, False), helper.rawPtr(None, False), helper.rawPtr(3, True),
                          helper.rawPtr(helper.intValue(3), True)], [(e.ptr, False), (None, True), (None, False),
                                                                     (None, False)])
        self.assertEqual([helper.entityRawPtr(x) for x in (None, helper.intValue(1), object())], [None] * 3)

    def test_last_handle_destroys_entity_under_activity_lock_without_gil(self):
        before = helper.probeState()[0]
        e = helper.entity("doomed")
        self.assertIsNotNone(helper.convert(e))   # a raw pointer only; no reference
        del e
        self.assertEqual(tuple(helper.probeState()), (before + 1, True, True))   # destroyed, lock held, GIL released
        self.assertEqual(_Zel.activityLockOwner(), 0)


class PublicSurface(unittest.TestCase):
    def test_names_and_closed_types(self):
        for hidden in ("ZelType", "ZelAttr", "GenericIfIterator"):
            self.assertFalse(hasattr(_Zel, hidden), hidden)
        t = _Zel.typeNode(ENTITY)
        for closed in (type(t), type(t.attr("name")), _Zel.GifPtr):
            self.assertRaises(TypeError, closed)
        with self.assertRaises(TypeError):
            type("Sub", (_Zel.GifPtr,), {})
        self.assertEqual((_Zel.IteratorModeKeys, _Zel.IteratorModeValues, _Zel.IteratorModeItems), (0, 1, 2))

    def test_doc_strings(self):
        # The texts users read in help(): word for word, odd ones included.
        t = _Zel.typeNode(ENTITY)
        sw = _Zel.typeNode("Demo::Switch")
        it = _Zel.newGenericIf(sw, ("doc",)).attributeIter(sw.attr("vlan"), 0)
        for thing, doc in ((_Zel, "Module providing access to Zel types"), (type(t), "Wraps a Zel::ZelType"),
                           (_Zel.typeNode, "Return the Zel::ZelType object with the specified name"),
                           (_Zel.acquireActivityLock, "Acquire the global activity lock"),
                           (_Zel.releaseActivityLock, "Release the global activity lock"),
                           (_Zel.activityLockOwner, "owner of the activity lock"), (_Zel.GifPtr, "GifPtr objects"),
                           (_Zel.enableThreadSafePointers, "enable atomic smart pointers"),
                           (type(t).isDerived, "is type in my chain of base types?"),
                           (type(t).attributeQ, "attribute queue"), (_Zel.GifPtr.ptr, "pointer value as an int"),
                           (type(t.attr("name")).instantiatingArgTypeQ, "instantiating arg type queue"),
                           (_Zel.GifPtr.strRep, "return the string representation of the _Zel.GifPtr"),
                           (type(it), "GenericIfIterator object")):
            self.assertEqual(thing.__doc__, doc, thing)


class Roots(unittest.TestCase):
    def test_roots_and_singletons(self):
        for f, name in ((_Zel.globalDir, "Zel::Dir"), (_Zel.globalNboAttrLogConnectionDir, "Zel::ConnectionDir"),
                        (_Zel.globalNboAttrLogDemuxerManager, "Zel::NboAttrLog::DemuxerManager")):
            self.assertEqual(f().typeName(), name)
            self.assertEqual(f().ptr, f().ptr)

    def test_handle_holds_one_reference(self):
        o = object()
        before = sys.getrefcount(o)
        h = _Zel.handle(o)
        self.assertEqual((h.typeName(), h.attributeSingleton(_Zel.typeNode("Zel::PyObjHandle").attr("passedRef"))),
                         ("Zel::PyObjHandle", False))
        self.assertEqual(sys.getrefcount(o), before + 1)
        del h
        self.assertEqual(sys.getrefcount(o), before)


class ProcessWide(unittest.TestCase):
    def test_external_info_title_and_trace_in_a_child(self):
        trace = tempfile.NamedTemporaryFile(suffix=".trace")
        script = ("import _Zel\n_Zel.setexternalinfo('t', 7, 's')\n_Zel.printexternalinfo()\n"
                  "_Zel.setexternalinfo('u', 0, 'x')\n_Zel.printexternalinfo(1, 2)\n"
                  "_Zel.setproctitle('zeltitle', 'b', 'c')\nprint(open('/proc/self/comm').read().strip())\n"
                  "print('%s %s' % (_Zel.traceLineSuppressed(None, 9), _Zel.traceLineSuppressed(None, 10)))\n"
                  "print(_Zel.trace_h(None, 'file.py', 12, 'fn', 'before\\0after', 3))\n")
        env = dict(os.environ, ZELTRACE="*/0-9", ZELTRACEFILE=trace.name)
        rc, out, err = children.python("setting external info and title", script, env=env)
        self.assertEqual((rc, out.splitlines()), (0, [   # the socket is kept when set to 0
            "externalProcTitle=t, externallySetSocket=7, externallySetSocketName=s",
            "externalProcTitle=u, externallySetSocket=7, externallySetSocketName=s", "zeltitle b c", "False True",
            "None"]), err)
        self.assertIn("before\0after", open(trace.name).read())


class NoLeaks(unittest.TestCase):
    def test_many_operations_leave_counts_unchanged(self):
        T = _Zel.typeNode("Demo::Switch")
        A = T.attr
        key, value, obj = "k", "v", object()
        sw = _Zel.newGenericIf(T, ("leaks",))

        def one_round():
            sw.attributeCollectionIs(A("vlan"), 1, value)
            sw.attributeCollection(A("vlan"), 1)
            self.assertRaises(KeyError, sw.attributeCollection, A("intf"), key)
            sw.attributeCollectionIs(A("intf"), None, (key,))
            sw.attributeAdd(A("log"), value)
            sw.attributeRemove(A("log"))
            sw.attributeCollectionDel(A("intf"), key)
            drain(sw.attributeIter(A("vlan"), 2))
            sw.attributeFunction(A("add"), (1, 2))
            self.assertRaises(IndexError, sw.attributeFunction, A("fail"), ("RangeException", value))
            _Zel.handle(obj)
            _Zel.newGenericIf(T, (key,))

        def counts():
            return [sys.getrefcount(x) for x in (key, value, obj, sw)]   # framework objects: zeltest_runner

        one_round()
        before = counts()
        for _ in range(1000):
            one_round()
        self.assertEqual(counts(), before)

if __name__ == "__main__":
    unittest.main()
