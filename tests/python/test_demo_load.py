"""import ZelDemo loads libZelDemo.so from $ZEL_BUILD_DIR/lib first."""
import os
import unittest

import ZelDemo


class DemoLoadTest(unittest.TestCase):
    def test_the_build_folder_is_looked_in_first(self):
        self.assertEqual(os.path.basename(ZelDemo.libraryPath), 'libZelDemo.so')
        saved = os.environ.get('ZEL_BUILD_DIR')
        os.environ['ZEL_BUILD_DIR'] = '/nonexistent'
        try:
            self.assertEqual(next(ZelDemo._candidates()), '/nonexistent/lib/libZelDemo.so')
        finally:
            if saved is None:
                del os.environ['ZEL_BUILD_DIR']
            else:
                os.environ['ZEL_BUILD_DIR'] = saved


if __name__ == '__main__':
    unittest.main()
