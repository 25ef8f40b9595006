"""Builds the wheel with the setuptools and wheel of the interpreter, so that nothing is downloaded where it has both. pip runs this
in an environment that hides them."""
import importlib.util
import site
import sys

sys.path.extend(path for path in site.getsitepackages() if path not in sys.path)


def get_requires_for_build_wheel(config_settings=None):
    """What pip has to get first."""
    return [name for name in ("setuptools", "wheel") if importlib.util.find_spec(name) is None]


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    from setuptools import build_meta

    return build_meta.build_wheel(wheel_directory, config_settings, metadata_directory)
