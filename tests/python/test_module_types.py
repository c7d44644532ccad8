"""The module's own types: ZelType and ZelAttr wrappers of the framework's
descriptors, GifPtr handles (printing, small methods, converters,
release), and the module's public names and documentation."""
import unittest

import ZelDemo  # noqa: F401
import _Zel
import _ZelTestHelper as helper

ENTITY = "Zel::Entity"


class Descriptors(unittest.TestCase):
    def setUp(self):
        self.t = _Zel.typeNode(ENTITY)

    def test_one_wrapper_per_descriptor(self):
        name = self.t.attr("name")
        self.assertIs(_Zel.typeNode(ENTITY), self.t)
        self.assertIs(self.t.attr("name"), name)
        self.assertIs(self.t.attr(name.attributeId), name)
        self.assertIs(self.t.attr(long(name.attributeId)), name)
        self.assertIs(self.t.attributeQ[0], name)
        self.assertIs(name.scope, self.t)
        self.assertEqual({self.t: 1}[_Zel.typeNode(ENTITY)], 1)

    def test_type_properties(self):
        base, value = _Zel.typeNode("Zel::PtrInterface"), _Zel.typeNode("Zel::Name")
        self.assertEqual((repr(self.t), repr(self.t.attr("name"))),
                         ("type('Zel::Entity')", "type('Zel::Entity').attr('name')"))
        self.assertEqual(self.t.fullTypeName, ENTITY)
        self.assertIsInstance(self.t.size, long)
        self.assertEqual((self.t.isEntity, self.t.isValue, self.t.hasOwnPtrInterface, self.t.valAttr),
                         (True, False, True, None))
        self.assertEqual((value.isValue, value.valAttr.name), (True, "value"))
        self.assertEqual((self.t.baseType, base.baseType), (base, None))
        self.assertEqual((self.t.isDerived(base), base.isDerived(self.t)), (True, False))
        self.assertEqual([a.name for a in self.t.attributeQ][:4], ["name", "parent", "parentAttrName", "fullName"])
        self.assertEqual((self.t.constructorArgNameQ, self.t.constructorArgTypeQ, base.constructorArgNameQ),
                         (("name",), ("Zel::Name",), ()))

    def test_attribute_properties(self):
        a = self.t.attr("name")
        self.assertIsInstance(a.attributeId, int)
        self.assertIs(a.memberType, _Zel.typeNode("Zel::Name"))
        self.assertEqual((a.name, a.indexType, a.indexAttr, a.instantiatingIndexPosition, a.internalIndexName,
                          a.instantiatingArgNameQ), ("name", None, None, None, None, ()))
        self.assertEqual((a.readable, a.writable, a.isImmutable, a.isCollection, a.hasInternalIndex),
                         (True, False, True, False, False))
        self.assertIs(self.t.attr("parent").isPtr, True)


class Handles(unittest.TestCase):
    def test_null_handles_print_and_refuse_operations(self):
        for n in (helper.nullGifPtr(), _Zel.nullGenericIf()):
            self.assertIs(type(n), _Zel.GifPtr)
            self.assertEqual((str(n), repr(n)), ("<null>", "<null>"))
            for op in (n.typeName, n.isConst, n.hash, n.strRep, lambda: n.ptr):
                self.assertRaises(IndexError, op)

    def test_entity_handle(self):
        e = helper.entity("small")
        r = repr(e)
        self.assertTrue(r.startswith("_Zel.GifPtr(0x") and r.endswith(",'Zel::Entity')"), r)
        address = r[len("_Zel.GifPtr("):-len(",'Zel::Entity')")]
        self.assertEqual(str(e), "<_Zel.GifPtr to object of type 'Zel::Entity' at %s>" % address)
        self.assertEqual((e.typeName(), e.isConst()), ("Zel::Entity", False))
        self.assertIsInstance(e.hash(), long)
        self.assertEqual(e.hash(), e.hash())
        self.assertIsInstance(e.strRep(), str)
        self.assertIsInstance(e.ptr, (int, long))
        self.assertEqual(e.ptr, helper.entityRawPtr(e))

    def test_value_handle(self):
        v = helper.intValue(7)
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
        self.assertTrue(hasattr(_Zel, "GifPtr") and hasattr(_Zel, "Backtrace"))
        for hidden in ("ZelType", "ZelAttr", "GenericIfIterator"):
            self.assertFalse(hasattr(_Zel, hidden), hidden)
        self.assertEqual((_Zel.IteratorModeKeys, _Zel.IteratorModeValues, _Zel.IteratorModeItems), (0, 1, 2))
        t = _Zel.typeNode(ENTITY)
        for closed in (type(t), type(t.attr("name")), _Zel.GifPtr):
            self.assertRaises(TypeError, closed)
        with self.assertRaises(TypeError):
            type("Sub", (_Zel.GifPtr,), {})

    def test_doc_strings(self):
        t = _Zel.typeNode(ENTITY)
        sw = _Zel.typeNode("Demo::Switch")
        it = _Zel.newGenericIf(sw, ("doc",)).attributeIter(sw.attr("vlan"), 0)
        for thing, doc in ((_Zel, "Module providing access to Zel types"),
                           (_Zel.typeNode, "Return the Zel::ZelType object with the specified name"),
                           (_Zel.acquireActivityLock, "Acquire the global activity lock"),
                           (_Zel.releaseActivityLock, "Release the global activity lock"),
                           (_Zel.activityLockOwner, "owner of the activity lock"),
                           (_Zel.enableThreadSafePointers, "enable atomic smart pointers"),
                           (type(t), "Wraps a Zel::ZelType"),
                           (type(t).isDerived, "is type in my chain of base types?"),
                           (type(t).attributeQ, "attribute queue"),
                           (type(t.attr("name")).instantiatingArgTypeQ, "instantiating arg type queue"),
                           (_Zel.GifPtr, "GifPtr objects"),
                           (_Zel.GifPtr.ptr, "pointer value as an int"),
                           (_Zel.GifPtr.strRep, "return the string representation of the _Zel.GifPtr"),
                           (type(it), "GenericIfIterator object")):
            self.assertEqual(thing.__doc__, doc, thing)


if __name__ == "__main__":
    unittest.main()
