import os
import unittest


class DemoLoadTest(unittest.TestCase):
    def test_import_loads_the_library(self):
        import ZelDemo
        self.assertTrue(os.path.isfile(ZelDemo.libraryPath))
        self.assertEqual(os.path.basename(ZelDemo.libraryPath), 'libZelDemo.so')
        self.assertIsNotNone(ZelDemo.library._handle)

    def test_missing_library_is_an_import_error(self):
        import ZelDemo
        saved = os.environ.get('ZEL_BUILD_DIR')
        os.environ['ZEL_BUILD_DIR'] = '/nonexistent'
        try:
            paths = list(ZelDemo._candidates())
            self.assertEqual(paths[0], '/nonexistent/lib/libZelDemo.so')
        finally:
            if saved is None:
                del os.environ['ZEL_BUILD_DIR']
            else:
                os.environ['ZEL_BUILD_DIR'] = saved


if __name__ == '__main__':
    unittest.main()
