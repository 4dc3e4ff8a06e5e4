import contextlib

import pytest

from broker import Broker, Operator


@pytest.fixture
def running():
    """Ends what it is given, the last first."""
    with contextlib.ExitStack() as stack:
        yield lambda one: stack.enter_context(contextlib.closing(one))


@pytest.fixture
def broker(running, tmp_path):
    return lambda *users: running(Broker(tmp_path, users)).start()


@pytest.fixture
def operator(running):
    return lambda broker, user="operator": running(Operator(broker, user))
