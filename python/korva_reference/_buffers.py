"""Working memory of the package's classes.

NumPy owns it, and whoever uses it holds a reference: a call in another thread, in a child after fork() or at the end of
the interpreter keeps what it works on, and there is no lock to be left behind.
"""

from __future__ import annotations

from typing import Any, TypeVar

Self = TypeVar("Self", bound="WorkingMemory")


class WorkingMemory:
    _memory: Any

    def _use(self) -> Any:
        memory = self._memory
        if memory is None:
            raise ValueError(f"{type(self).__name__}: expected an open buffer, found a released one")
        return memory

    def release(self) -> None:
        """Gives the memory back, after calls that run. Further releases do nothing; any other use is a ValueError."""
        self._memory = None

    def __enter__(self: Self) -> Self:
        self._use()
        return self

    def __exit__(self, *_: object) -> None:
        self.release()
