"""Makes the modules that the engine carries in its binary importable.

Run once in a namespace of its own, which holds `sources`: for each dotted name, its source text and
whether it is a package.
"""

import importlib.abc
import importlib.util
import sys


class EmbeddedImporter(importlib.abc.MetaPathFinder, importlib.abc.InspectLoader):
    def __init__(self, modules):
        self._modules = modules

    def find_spec(self, fullname, path=None, target=None):
        if fullname not in self._modules:
            return None
        return importlib.util.spec_from_loader(fullname, self, is_package=self.is_package(fullname))

    def is_package(self, fullname):
        return self._modules[fullname][1]

    def get_source(self, fullname):
        return self._modules[fullname][0]

    def get_code(self, fullname):
        return compile(self.get_source(fullname), f"<{fullname}>", "exec", dont_inherit=True)


# First of all finders, so that no folder on the path can stand in for the engine's own side.
sys.meta_path.insert(0, EmbeddedImporter(sources))  # noqa: F821
