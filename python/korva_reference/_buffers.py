"""Memory that the library allocated: released exactly once, and refused afterwards."""

from __future__ import annotations

import threading
import weakref
from contextlib import contextmanager
from typing import Any, Callable, Iterator, NoReturn, TypeVar

Self = TypeVar("Self", bound="OwnedBuffers")


class OwnedBuffers:
    def _own(self, memory: Any, free: Callable[[Any], None]) -> None:
        if "_memory" in vars(self):
            free(memory)
            raise TypeError(f"{type(self).__name__}: expected one initialisation of an object, found a second one")
        # One call at a time: a release must not take the memory from under a call in another thread.
        self._lock = threading.Lock()
        self._memory = memory
        self._release = weakref.finalize(self, free, memory)

    @contextmanager
    def _use(self) -> Iterator[Any]:
        with self._lock:
            if not self._release.alive:
                raise ValueError(f"{type(self).__name__}: expected an open buffer, found a released one")
            yield self._memory

    def release(self) -> None:
        """Returns the memory to the library. Further releases do nothing; any other use is a ValueError."""
        with self._lock:
            self._release()

    def __enter__(self: Self) -> Self:
        with self._use():
            return self

    def __exit__(self, *_: object) -> None:
        self.release()

    def __reduce_ex__(self, _: Any) -> NoReturn:
        raise TypeError(f"{type(self).__name__}: cannot be copied or pickled, it owns memory outside Python")
