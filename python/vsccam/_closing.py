"""What `with` closes."""

from typing import Self


class Closing:
    """Base of what is closed at the end of its `with`, however that ends."""

    def close(self) -> None:
        raise NotImplementedError

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *error: object) -> None:
        self.close()
