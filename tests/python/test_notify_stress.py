"""Lock order under load, briefly: the soak's actors for a few seconds
(Python threads changing attributes and reading collections while another
thread runs the activity loop, which delivers deferred notifications and
clock firings to Python handlers, with commands and churn besides), every
call checked to arrive once. The soak runs them for longer and also
compares what the process holds before and after."""
import unittest

from soak_actors import runChecked

SECONDS = 3.0


class Stress(unittest.TestCase):
    def test_writers_readers_and_loop_finish_with_every_call_once(self):
        runChecked(self, SECONDS)


if __name__ == "__main__":
    unittest.main()
