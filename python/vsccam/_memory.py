"""Frames in memory that two processes share. It has no name, so that nothing of it can be left."""

import mmap
import os
from collections.abc import Sequence

import numpy as np

from .camera import Frame


class SharedFrames:
    """Room for frames, in a file that both processes have open. It grows as it has to."""

    def __init__(self, file: int) -> None:
        self.file = file
        self._map: mmap.mmap | None = None

    def arrays(self, shape: Sequence[int], dtype: str, count: int) -> list[Frame]:
        """So many frames, one behind the other."""
        each = int(np.prod(shape)) * np.dtype(dtype).itemsize
        if os.fstat(self.file).st_size < each * count:
            os.ftruncate(self.file, each * count)
        if self._map is None or len(self._map) < each * count:
            self._map = mmap.mmap(self.file, each * count)  # arrays keep the one of before alive
        flat = np.frombuffer(self._map, np.uint8)
        return [
            flat[each * i : each * (i + 1)].view(dtype).reshape(tuple(shape)) for i in range(count)
        ]
