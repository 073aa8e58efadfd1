"""The examples in the package, in README.md and in docs/python.md run, its version is right."""
import doctest
import importlib
import os
import pkgutil
import re
import unittest

import vekfind

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))


class Documentation(unittest.TestCase):
    def test_examples(self):
        attempted = 0
        for module in pkgutil.iter_modules(vekfind.__path__, "vekfind."):
            result = doctest.testmod(importlib.import_module(module.name))
            self.assertEqual(result.failed, 0)
            attempted += result.attempted
        self.assertGreater(attempted, 5)
        for result in (doctest.testmod(vekfind),
                       doctest.testfile(ROOT + "/README.md", module_relative=False),
                       doctest.testfile(ROOT + "/docs/python.md", module_relative=False)):
            self.assertEqual(result.failed, 0)
            self.assertGreater(result.attempted, 1)

    def test_version(self):
        with open(ROOT + "/python/pyproject.toml") as file:
            version = re.search(r'^version = "(.*)"', file.read(), re.MULTILINE)
        self.assertEqual(f"v{version[1]}", vekfind.library_version())


if __name__ == "__main__":
    unittest.main()
