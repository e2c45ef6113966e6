# The exception types of kerova under the module name their instances pickle with.
from kerova import ShapeError as ShapeError, SizeError as SizeError

__all__ = ["ShapeError", "SizeError"]
