import contextlib

import pytest

from appliance import Appliance


@pytest.fixture
def appliance():
    """Makes appliances that end with the test."""
    with contextlib.ExitStack() as stack:
        yield lambda *args, **kwargs: stack.enter_context(Appliance(*args, **kwargs))


@pytest.fixture(scope="module")
def shipped():
    """The shipped appliance, running, for tests that change nothing."""
    with Appliance(shipped=True) as a:
        yield a.start(tcp=True)
