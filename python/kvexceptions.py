"""The exception types of kerova under the module name their instances pickle with."""

from kerovamultidimarrayforpython import ShapeError, SizeError  # noqa: F401

__all__ = ["ShapeError", "SizeError"]
