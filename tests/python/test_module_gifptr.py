"""_Zel.GifPtr handles: printing, small methods, converters, release."""
import unittest

import _Zel
import _ZelTestHelper as helper


class Printing(unittest.TestCase):
    def test_null_handle(self):
        n = helper.nullGifPtr()
        self.assertIs(type(n), _Zel.GifPtr)
        self.assertEqual(str(n), "<null>")
        self.assertEqual(repr(n), "<null>")

    def test_str_and_repr_formats(self):
        e = helper.entity("printed")
        r = repr(e)
        self.assertTrue(r.startswith("_Zel.GifPtr(0x") and r.endswith(",'Zel::Entity')"), r)
        address = r[len("_Zel.GifPtr("):-len(",'Zel::Entity')")]
        self.assertEqual(str(e), "<_Zel.GifPtr to object of type 'Zel::Entity' at %s>" % address)


class SmallMethods(unittest.TestCase):
    def test_entity_handle(self):
        e = helper.entity("small")
        self.assertEqual(e.typeName(), "Zel::Entity")
        self.assertIs(e.isConst(), False)
        self.assertIsInstance(e.hash(), long)
        self.assertEqual(e.hash(), e.hash())
        self.assertIsInstance(e.strRep(), str)
        self.assertIsInstance(e.ptr, (int, long))
        self.assertEqual(e.ptr, helper.entityRawPtr(e))

    def test_value_handle(self):
        v = helper.intValue(7)
        self.assertEqual(v.typeName(), "int")
        self.assertEqual(v.strRep(), "7")
        self.assertNotEqual(v.hash(), helper.intValue(8).hash())
        with self.assertRaises(TypeError) as cm:
            v.ptr
        self.assertEqual(str(cm.exception), "Cannot access the ptr for this type")

    def test_type_is_closed(self):
        with self.assertRaises(TypeError):
            _Zel.GifPtr()
        with self.assertRaises(TypeError):
            class Sub(_Zel.GifPtr):
                pass
        self.assertEqual(_Zel.GifPtr.__doc__, "GifPtr objects")
        self.assertEqual(_Zel.GifPtr.ptr.__doc__, "pointer value as an int")
        self.assertEqual(_Zel.GifPtr.strRep.__doc__, "return the string representation of the _Zel.GifPtr")


class Converters(unittest.TestCase):
    def test_object_converter(self):
        e = helper.entity("conv")
        self.assertEqual(helper.convert(e), e.ptr)
        self.assertIsNone(helper.convert(None))
        for bad in (1, "x", helper.intValue(1)):
            with self.assertRaises(TypeError) as cm:
                helper.convert(bad)
            self.assertEqual(str(cm.exception), "Expected a Zel::PtrInterface or None")

    def test_raw_pointer_leaves_flag_on_success(self):
        e = helper.entity("raw")
        self.assertEqual(helper.rawPtr(e, False), (e.ptr, False))
        self.assertEqual(helper.rawPtr(None, False), (None, True))
        self.assertEqual(helper.rawPtr(3, True), (None, False))
        self.assertEqual(helper.rawPtr(helper.intValue(3), True), (None, False))

    def test_entity_raw_pointer(self):
        self.assertIsNone(helper.entityRawPtr(None))
        self.assertIsNone(helper.entityRawPtr(helper.intValue(1)))
        self.assertIsNone(helper.entityRawPtr(object()))


class Release(unittest.TestCase):
    def test_last_handle_destroys_entity_under_activity_lock_without_gil(self):
        before = helper.probeState()[0]
        e = helper.entity("doomed")
        other = helper.convert(e)  # a raw pointer only; no reference
        self.assertIsNotNone(other)
        del e
        destroyed, lock_held, gil_released = helper.probeState()
        self.assertEqual(destroyed, before + 1)
        self.assertIs(lock_held, True)
        self.assertIs(gil_released, True)
        self.assertEqual(_Zel.activityLockOwner(), 0)


if __name__ == "__main__":
    unittest.main()
