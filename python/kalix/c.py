"""The functions of client.h under their own names, called as C calls them.

Each takes what its prototype says: ctypes objects, records of kalix.declarations, ctypes.byref() of what is filled in,
None for NULL. A result below 0 is raised as OSError with its errno and the function's name; any other is returned. The
one that is returned whatever it is: kalix_connection_error(), for which an error is the answer.

The library is libkalix.so.0, found by the loader, or the file that KALIX_LIBRARY names. Calls let other threads run.
"""
import ctypes
import os

from kalix.declarations import FUNCTIONS

_library = ctypes.CDLL(os.environ.get("KALIX_LIBRARY") or "libkalix.so.0")
_ERROR_IS_THE_ANSWER = {"kalix_connection_error"}


def _checked(result: int, function, _arguments) -> int:
    """The result of a call, or its error raised."""
    if result < 0:
        raise OSError(-result, f"{function.__name__}: {os.strerror(-result)}")
    return result


def _bind(name: str):
    """The library's function of that name, with its types."""
    result, parameters = FUNCTIONS[name]
    function = getattr(_library, name)
    function.restype = result
    function.argtypes = [kind for _, kind in parameters]
    function.__doc__ = f"{name}({', '.join(parameter for parameter, _ in parameters)})"
    if result is ctypes.c_int and name not in _ERROR_IS_THE_ANSWER:
        function.errcheck = _checked
    return function


__all__ = list(FUNCTIONS)
globals().update({name: _bind(name) for name in FUNCTIONS})
