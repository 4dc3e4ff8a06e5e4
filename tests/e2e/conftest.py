import contextlib

import pytest

from appliance import Appliance
from cable import Site
from namespace import Namespace, namespaces_allowed


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


@pytest.fixture
def site(appliance):
    """The shipped appliance at the other end of a network cable."""
    if not namespaces_allowed():
        pytest.skip("network namespaces are not allowed here")
    with Namespace() as its_network, Namespace() as our_network:
        yield Site(appliance(shipped=True), its_network, our_network)
