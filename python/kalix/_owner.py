"""How an object owns something of the server's and gives it back once."""
import contextlib
import ctypes
import weakref
from collections.abc import Callable
from typing import Self


class Session:
    """What a connection's objects reach the server through: a handle, until the connection ends or releases all.

    Afterwards the handle is None, for which every call of the library is -EINVAL and changes nothing: what is left of
    the old session can neither harm the next one nor touch memory that is gone. Holds its connection alive.
    """

    def __init__(self, connection: object, handle: object) -> None:
        self.connection, self.handle = connection, handle


class Owner:
    """An object that gives back what it owns at the end of a with block, by close(), or when Python lets it go.

    Giving back reports nothing: a server that has gone has released everything already, and so has a connection that
    was closed first.
    """

    _give_back: weakref.finalize

    def _owns(self, give_back: Callable[..., object], *arguments: object) -> None:
        """Names the call that gives back, made once; it must not reach this object."""
        self._give_back = weakref.finalize(self, _quietly, give_back, *arguments)

    def _owns_of(self, session: Session, function: Callable[..., object], *arguments: object) -> None:
        """The same by a function of the library, which takes the session's connection first."""
        self._owns(lambda: function(session.handle, *arguments))

    @property
    def closed(self) -> bool:
        """Whether it has been given back."""
        return not self._give_back.alive

    def close(self) -> None:
        """Gives back; the second time nothing happens."""
        self._give_back()

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_error: object) -> None:
        self.close()


def _quietly(give_back: Callable[..., object], *arguments: object) -> None:
    with contextlib.suppress(OSError):
        give_back(*arguments)


def filled(function: Callable[..., object], kind: type, *arguments: object):
    """Calls function(*arguments, out) with a new object of the kind, and returns that."""
    out = kind()
    function(*arguments, ctypes.byref(out))
    return out


def record(kind: type, value: object):
    """A record as it is, or made from a sequence of its fields."""
    return value if isinstance(value, kind) else kind(*value)


def array(kind: type, values) -> tuple[object, int]:
    """Records, or sequences of their fields, as an array of C and its length."""
    listed = [record(kind, value) for value in values]
    return (kind * len(listed))(*listed), len(listed)
