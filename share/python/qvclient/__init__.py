"""Commands and events of qvcd, the configuration daemon of the appliance, over libqvclient.

    with Client() as client:
        client.set("Services.HTTP.port", "8088")
        for line in client.run("get", "Services"):
            print(line.name, line.value)

A client may be used by several threads, which wait for each other; events by one thread at a time. Control-C takes
effect when a command has its reply or its time is over, and at once while events are waited for.
"""

from __future__ import annotations

import ctypes
import dataclasses
import select
import threading
import time
import typing

__all__ = ["ArgumentError", "Broken", "Client", "Error", "Event", "Events", "InternalError", "Line", "Refused", "Reply",
           "TimeOver", "TlsFileError", "Unreachable", "Untrusted", "library_version"]


class Error(Exception):
    """What all exceptions here are."""


class Refused(Error):
    """The daemon answered with an error; the text is its reason."""

    reply: Reply | None = None  #: of Client.check()


class ArgumentError(Error, ValueError):
    """An argument is wrong or cannot be said on the wire; nothing was sent."""


class Unreachable(Error, ConnectionError):
    """There is no connection; nothing was sent."""


class Untrusted(Error, ConnectionError):
    """TLS: no agreement, or the daemon's certificate is not trusted; nothing was sent."""


class TlsFileError(Error):
    """TLS: a file cannot be used; nothing was sent."""


class TimeOver(Error, TimeoutError):
    """No reply in time; what was asked may still happen."""


class Broken(Error, ConnectionError):
    """The connection ended too early; what was asked may have happened. Of events: later ones are missed."""


class InternalError(Error):
    """Another failure of the system."""


_OK, _TIMEOUT = 0, 7
_MOST_INT = 0x7FFFFFFF
_ERRORS = {1: Refused, 2: ArgumentError, 3: MemoryError, 4: Unreachable, 5: Untrusted, 6: TlsFileError,
           _TIMEOUT: TimeOver, 8: Broken}

_Text = ctypes.c_char_p
_Handle = ctypes.c_void_p
_Out = ctypes.POINTER(_Handle)
_FUNCTIONS: dict[str, tuple[typing.Any, list[typing.Any]]] = {
    "version_text": (_Text, []),
    "status_text": (_Text, [ctypes.c_int]),
    "problem": (_Text, [_Handle]),
    "client_new": (_Handle, []),
    "client_free": (None, [_Handle]),
    "client_use_local": (ctypes.c_int, [_Handle, _Text]),
    "client_use_tcp": (ctypes.c_int, [_Handle, _Text, ctypes.c_int]),
    "client_use_tls": (ctypes.c_int, [_Handle, _Text, _Text, _Text]),
    "client_set_timeouts": (ctypes.c_int, [_Handle, ctypes.c_int, ctypes.c_int]),
    "client_set_name": (ctypes.c_int, [_Handle, _Text]),
    "client_set_session": (ctypes.c_int, [_Handle, ctypes.c_int]),
    "client_session": (ctypes.c_int, [_Handle]),
    "client_login": (ctypes.c_int, [_Handle, _Text, _Text]),
    "client_logout": (ctypes.c_int, [_Handle]),
    "get": (ctypes.c_int, [_Handle, _Text, _Out]),
    "text_free": (None, [_Handle]),
    "set": (ctypes.c_int, [_Handle, _Text, _Text]),
    "run": (ctypes.c_int, [_Handle, ctypes.c_size_t, ctypes.POINTER(_Text), _Out]),
    "run_with_document": (ctypes.c_int, [_Handle, ctypes.c_size_t, ctypes.POINTER(_Text), _Text, ctypes.c_size_t, _Out]),
    "reply_free": (None, [_Handle]),
    "reply_result": (ctypes.c_int, [_Handle]),
    "reply_failed": (ctypes.c_int, [_Handle]),
    "reply_count": (ctypes.c_size_t, [_Handle]),
    "reply_line": (_Text, [_Handle, ctypes.c_size_t]),
    "reply_name": (_Text, [_Handle, ctypes.c_size_t]),
    "reply_value": (_Text, [_Handle, ctypes.c_size_t]),
    "reply_error": (_Text, [_Handle, ctypes.c_size_t]),
    "events_open": (ctypes.c_int, [_Handle, ctypes.c_size_t, ctypes.POINTER(_Text), _Out]),
    "events_close": (None, [_Handle]),
    "events_next": (ctypes.c_int, [_Handle, ctypes.c_int, _Out]),
    "events_fd": (ctypes.c_int, [_Handle]),
    "event_free": (None, [_Handle]),
    "event_kind": (_Text, [_Handle]),
    "event_name": (_Text, [_Handle]),
    "event_value": (_Text, [_Handle]),
    "event_json": (_Text, [_Handle]),
}


def _load() -> ctypes.CDLL:
    library = ctypes.CDLL("libqvclient.so.1")
    for name, (result, arguments) in _FUNCTIONS.items():
        function = getattr(library, "qvc_" + name)
        function.restype, function.argtypes = result, arguments
    return library


_library = _load()


def _bytes(text: str) -> bytes:
    data = text.encode(errors="surrogateescape")
    if b"\0" in data:
        raise ArgumentError("a NUL byte")
    return data


def _bytes_or_null(text: str | None) -> bytes | None:
    return None if text is None else _bytes(text)


def _str(data: bytes | None) -> str:
    return (data or b"").decode(errors="surrogateescape")


def _str_or_none(data: bytes | None) -> str | None:
    return None if data is None else _str(data)


def library_version() -> str:
    return _str(_library.qvc_version_text())


class Line(typing.NamedTuple):
    """One line of a reply."""

    text: str
    name: str | None  #: in front of "="
    value: str  #: behind it, or the whole
    error: str | None  #: the error in place of the value


@dataclasses.dataclass(frozen=True)
class Reply:
    """A reply; iterates over its lines."""

    result: int  #: the command's result code, 0 for success
    failed: bool  #: the result is not 0, or a line holds an error
    lines: tuple[Line, ...]

    def __iter__(self) -> typing.Iterator[Line]:
        return iter(self.lines)

    @property
    def text(self) -> str:
        """All lines, each with a newline."""
        return "".join(line.text + "\n" for line in self.lines)

    @property
    def values(self) -> dict[str, str]:
        """The lines that have a name, without those with an error."""
        return {line.name: line.value for line in self.lines if line.name is not None and line.error is None}


class Event(typing.NamedTuple):
    """Something that happened at the daemon."""

    kind: str  #: "set", "save", "apply", ...
    name: str | None  #: the setting, or else what it is about
    value: str
    json: str  #: the whole event


class Events:
    """What happens at the daemon; iterates until it ends, which raises Broken, or Refused when the session does."""

    def __init__(self, handle: _Handle) -> None:
        self._handle = handle

    def next(self, timeout: float | None = None) -> Event | None:
        """The next event; None when none has come for so many seconds. Without a timeout it waits for ever."""
        found = _Handle()
        deadline = None if timeout is None else time.monotonic() + timeout
        while (status := self._take(found)) == _TIMEOUT:
            left = None if deadline is None else deadline - time.monotonic()
            if left is not None and left <= 0:
                return None
            waits = select.poll()  # select() takes no descriptor above 1023
            waits.register(self, select.POLLIN)
            waits.poll(None if left is None else min(left, 86400) * 1000)
        if status != _OK:
            raise _ERRORS.get(status, InternalError)(_str(_library.qvc_status_text(status)))
        try:
            parts = (getattr(_library, "qvc_event_" + part)(found) for part in ("kind", "name", "value", "json"))
            kind, name, value, json = parts
            return Event(_str(kind), _str_or_none(name), _str(value), _str(json))
        finally:
            _library.qvc_event_free(found)

    def _take(self, found: _Handle) -> int:
        return _library.qvc_events_next(self._handle, 0, ctypes.byref(found))

    def fileno(self) -> int:
        """For select(): when it can be read, call next(0) until it gives None."""
        return _library.qvc_events_fd(self._handle)

    def __iter__(self) -> typing.Iterator[Event]:
        while True:
            event = self.next()
            if event is not None:
                yield event

    def close(self) -> None:
        _library.qvc_events_close(self._handle)
        self._handle = _Handle()

    def __enter__(self) -> Events:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


class Client:
    """Asks the daemon. Every command has a connection of its own.

    folder: of the local daemon's sockets, without it the appliance's. host and port: over TCP instead; tls: speak TLS, with
    ca, cert and key as files. session: a number that a login gave. timeout, connect_timeout: seconds, without them the
    usual. name: who asks, for the daemon's history.
    """

    def __init__(self, *, folder: str | None = None, host: str | None = None, port: int = 0, tls: bool = False,
                 ca: str | None = None, cert: str | None = None, key: str | None = None, session: int = 0,
                 timeout: float | None = None, connect_timeout: float | None = None, name: str = "python") -> None:
        self._lock = threading.Lock()
        self._handle = _Handle(_library.qvc_client_new())
        if not self._handle:
            raise MemoryError
        if host is not None:
            self._call("client_use_tcp", _bytes(host), port)
        elif folder is not None:
            self._call("client_use_local", _bytes(folder))
        if tls or ca or cert or key:
            self._call("client_use_tls", *map(_bytes_or_null, (ca, cert, key)))
        self._call("client_set_timeouts", *(0 if s is None else max(1, round(s * 1000)) for s in (connect_timeout, timeout)))
        self._call("client_set_name", _bytes(name))
        self._call("client_set_session", session)

    def _call(self, function: str, *arguments: typing.Any) -> None:
        if any(isinstance(one, int) and not -_MOST_INT <= one <= _MOST_INT for one in arguments):
            raise ArgumentError("a number is too large")  # ctypes would cut it: of session 1 << 32 the root session is left
        with self._lock:
            if not self._handle:
                raise ArgumentError("the client is closed")
            status = getattr(_library, "qvc_" + function)(self._handle, *arguments)
            if status != _OK:
                text = _library.qvc_problem(self._handle) or _library.qvc_status_text(status)
                raise _ERRORS.get(status, InternalError)(_str(text))

    @property
    def session(self) -> int:
        """The session that commands run in."""
        return _library.qvc_client_session(self._handle)

    def login(self, user: str, password: str) -> None:
        """From now on commands run in a session of this user. Raises Refused."""
        self._call("client_login", _bytes(user), _bytes(password))

    def logout(self) -> None:
        """Ends the session; commands run in session 0 again."""
        self._call("client_logout")

    def get(self, name: str) -> str:
        """The value of one setting. Raises Refused."""
        value = _Handle()
        self._call("get", _bytes(name), ctypes.byref(value))
        try:
            return _str(ctypes.string_at(value))  # type: ignore[arg-type]
        finally:
            _library.qvc_text_free(value)

    def set(self, name: str, value: str) -> None:
        """Sets one setting, without saving or applying it. Raises Refused."""
        self._call("set", _bytes(name), _bytes(value))

    def run(self, *words: str, document: bytes | None = None) -> Reply:
        """Runs any command. The reply may hold errors. document: for an import that has "-" in place of a file."""
        found = _Handle()
        given = len(words), (_Text * len(words))(*map(_bytes, words))
        if document is None:
            self._call("run", *given, ctypes.byref(found))
        else:
            self._call("run_with_document", *given, document, len(document), ctypes.byref(found))
        try:
            count = _library.qvc_reply_count(found)
            lines = tuple(_line(found, i) for i in range(count))
            return Reply(_library.qvc_reply_result(found), _library.qvc_reply_failed(found) != 0, lines)
        finally:
            _library.qvc_reply_free(found)

    def check(self, *words: str, document: bytes | None = None) -> Reply:
        """run(), which raises Refused, with the reply in it, when the command fails."""
        reply = self.run(*words, document=document)
        if reply.failed:
            error = Refused(next((line.text for line in reply if line.error), f"result {reply.result}"))
            error.reply = reply
            raise error
        return reply

    def events(self, *names: str, kinds: typing.Sequence[str] = ()) -> Events:
        """What happens at the daemon from now on; to be closed.

        Without names and kinds, all that this session may see. names: of settings and groups, with "*" and "?".
        kinds: "set", "save", ...
        """
        words = [*(word for kind in kinds for word in ("-e", kind)), *names]
        found = _Handle()
        self._call("events_open", len(words), (_Text * len(words))(*map(_bytes, words)), ctypes.byref(found))
        return Events(found)

    def close(self) -> None:
        with self._lock:
            _library.qvc_client_free(self._handle)
            self._handle = _Handle()

    def __enter__(self) -> Client:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


def _line(reply: _Handle, i: int) -> Line:
    text, name, value, error = (
        getattr(_library, "qvc_reply_" + part)(reply, i) for part in ("line", "name", "value", "error"))
    return Line(_str(text), _str_or_none(name), _str(value), _str_or_none(error))
