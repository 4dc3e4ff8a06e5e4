"""What a GET of one value over HTTP costs beside the same over the line protocol, on one processor.

    cmake --build --preset release && /usr/bin/python3 tests/bench/web_get.py

Each asks over a connection of its own for the daemon's line protocol, as clients that want the result of one command do, and
over one that stays open for HTTP. Turns alternate; what is printed are medians, in microseconds.
"""

import os
import pathlib
import socket
import statistics
import sys
import time

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
os.environ.setdefault("QVCD_BIN_DIR", str(REPOSITORY / "build/release/bin"))
sys.path.insert(0, str(REPOSITORY / "tests/e2e"))

from appliance import Appliance  # noqa: E402
from test_web_api import Gateway  # noqa: E402

NAME = "Services.HTTP.port"
ROUNDS, REQUESTS = 9, 300


def line_protocol(appliance):
    for _ in range(REQUESTS):
        with socket.socket(socket.AF_UNIX) as connection:
            connection.connect(appliance.address())
            connection.sendall(f"bench 0 0\nget {NAME}\n\n".encode())
            reply = b""
            while data := connection.recv(4096):
                reply += data
            assert reply.startswith(NAME.encode())


def get(connection, request):
    """By hand, as above: an HTTP library for Python takes longer than both servers."""
    for _ in range(REQUESTS):
        connection.sendall(request)
        reply = connection.recv(65536)
        assert reply.startswith(b"HTTP/1.1 200 ") and NAME.encode() in reply


def timed(run, *arguments):
    begin = time.perf_counter()
    run(*arguments)
    return (time.perf_counter() - begin) / REQUESTS * 1e6


def main():
    os.sched_setaffinity(0, {min(os.sched_getaffinity(0))})  # inherited by the daemon and the gateway
    with Appliance(shipped=True) as appliance:
        appliance.start(level=0)
        for options in (["--plain"], []):
            with Gateway(appliance, "--verbosity", "0", *options) as gateway:
                request = f"GET /api/v1/values/{NAME} HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer {gateway.token()}\r\n\r\n"
                client = gateway.connect()
                client.connect()
                connection = client.sock
                get(connection, request.encode())
                pairs = [(timed(line_protocol, appliance), timed(get, connection, request.encode())) for _ in range(ROUNDS)]
                line, web = (statistics.median(side) for side in zip(*pairs))
                ratio = statistics.median(b / a for a, b in pairs)
                print(f"{'HTTP' if options else 'HTTPS'}: line protocol {line:.0f}, GET {web:.0f}, ratio {ratio:.2f}")
                client.close()


if __name__ == "__main__":
    main()
