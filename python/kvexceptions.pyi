from kerova import ShapeError as ShapeError, SizeError as SizeError
