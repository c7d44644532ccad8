"""_Zel.ZelType / _Zel.ZelAttr wrappers of the framework's descriptors."""
import unittest

import _Zel

ENTITY = "Zel::Entity"


class TypeWrappers(unittest.TestCase):
    def setUp(self):
        self.t = _Zel.typeNode(ENTITY)

    def test_one_wrapper_per_descriptor(self):
        self.assertIs(_Zel.typeNode(ENTITY), self.t)
        self.assertIs(self.t.attr("name"), self.t.attr("name"))
        self.assertIs(self.t.attributeQ[0], self.t.attr("name"))
        self.assertIs(self.t.attr("name").scope, self.t)
        self.assertIs(self.t.baseType, _Zel.typeNode("Zel::PtrInterface"))
        self.assertEqual({self.t: 1}[_Zel.typeNode(ENTITY)], 1)

    def test_reprs_and_names(self):
        self.assertEqual(repr(self.t), "type('Zel::Entity')")
        self.assertEqual(repr(self.t.attr("name")), "type('Zel::Entity').attr('name')")
        self.assertEqual(self.t.fullTypeName, ENTITY)
        self.assertIsInstance(self.t.size, long)

    def test_flags_and_positions(self):
        self.assertIs(self.t.isEntity, True)
        self.assertIs(self.t.isValue, False)
        self.assertIs(self.t.hasOwnPtrInterface, True)
        self.assertIsNone(self.t.valAttr)
        name = _Zel.typeNode("Zel::Name")
        self.assertIs(name.isValue, True)
        self.assertEqual(name.valAttr.name, "value")
        self.assertIsNone(_Zel.typeNode("Zel::PtrInterface").baseType)

    def test_attribute_and_constructor_queues(self):
        names = [a.name for a in self.t.attributeQ]
        self.assertEqual(names[:4], ["name", "parent", "parentAttrName", "fullName"])
        self.assertEqual(self.t.constructorArgNameQ, ("name",))
        self.assertEqual(self.t.constructorArgTypeQ, ("Zel::Name",))
        self.assertEqual(_Zel.typeNode("Zel::PtrInterface").constructorArgNameQ, ())

    def test_attr_lookup_by_exact_key_types(self):
        name = self.t.attr("name")
        self.assertIs(self.t.attr(name.attributeId), name)
        self.assertIs(self.t.attr(long(name.attributeId)), name)
        self.assertIsNone(self.t.attr("noSuchAttribute"))
        for bad in (True, u"name", 1.0, None):
            with self.assertRaises(TypeError) as cm:
                self.t.attr(bad)
            self.assertEqual(str(cm.exception), "Expected a str, int or long")
        with self.assertRaises(OverflowError):
            self.t.attr(1 << 80)

    def test_is_derived(self):
        base = _Zel.typeNode("Zel::PtrInterface")
        self.assertIs(self.t.isDerived(base), True)
        self.assertIs(base.isDerived(self.t), False)
        with self.assertRaises(TypeError) as cm:
            self.t.isDerived(ENTITY)
        self.assertEqual(str(cm.exception), "Expected a _Zel.ZelType")

    def test_not_creatable_from_python(self):
        with self.assertRaises(TypeError):
            type(self.t)()
        with self.assertRaises(TypeError):
            type(self.t.attr("name"))()

    def test_doc_strings(self):
        T = type(self.t)
        self.assertEqual(T.__doc__, "Wraps a Zel::ZelType")
        self.assertEqual(T.isDerived.__doc__, "is type in my chain of base types?")
        self.assertEqual(T.attributeQ.__doc__, "attribute queue")
        self.assertEqual(type(self.t.attr("name")).instantiatingArgTypeQ.__doc__, "instantiating arg type queue")


class AttrWrappers(unittest.TestCase):
    def test_getters_of_a_readonly_attribute(self):
        a = _Zel.typeNode(ENTITY).attr("name")
        self.assertEqual(a.name, "name")
        self.assertIsInstance(a.attributeId, int)
        self.assertIs(a.memberType, _Zel.typeNode("Zel::Name"))
        self.assertIsNone(a.indexType)
        self.assertIsNone(a.indexAttr)
        self.assertIsNone(a.instantiatingIndexPosition)
        self.assertIs(a.readable, True)
        self.assertIs(a.writable, False)
        self.assertIs(a.isImmutable, True)
        self.assertIs(a.isCollection, False)
        self.assertIs(a.hasInternalIndex, False)
        self.assertIsNone(a.internalIndexName)
        self.assertEqual(a.instantiatingArgNameQ, ())
        self.assertIs(_Zel.typeNode(ENTITY).attr("parent").isPtr, True)

    def test_unknown_type_name(self):
        with self.assertRaises(TypeError):
            _Zel.typeNode("No::SuchType")


if __name__ == "__main__":
    unittest.main()
