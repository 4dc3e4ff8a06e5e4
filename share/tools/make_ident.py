#!/usr/bin/env python3
"""Makes an image of a board's identity memory.

    make_ident.py [--product NAME] ... [--build N --serial N] OUTPUT

The memory holds 125 bytes: records of {group, length, data}, ended by group 0; the rest is 0. Build and serial
number are one binary record: its first byte is below 0x20, the build number is in bytes 2 to 5 and the serial
number in bytes 6 to 9, little-endian. --build-text writes that record as text instead.
"""

import argparse
import struct

SIZE = 125
TEXT_GROUPS = {"product": 1, "brand": 6, "hardware": 7, "country": 23}
CONNECTOR_GROUPS = {"video-inputs": 3, "video-outputs": 4, "audio-inputs": 8, "audio-outputs": 9}
BUILD_GROUP = 5
CONNECTORS = ["unknown", "hdmi", "sdi", "composite", "component", "dvi",
              "vga", "analog", "embedded", "aes", "headphone"]


def connectors(text):
    return bytes(CONNECTORS.index(name) for name in text.split(",") if name)


def record(group, data):
    if len(data) > 255:
        raise ValueError(f"group {group} is longer than 255 bytes")
    return bytes([group, len(data)]) + data


def image(records):
    data = b"".join(record(group, payload) for group, payload in records) + b"\0"
    if len(data) > SIZE:
        raise ValueError(f"{len(data)} bytes do not fit into {SIZE}")
    return data.ljust(SIZE, b"\0")


def arguments():
    parser = argparse.ArgumentParser(description="Makes an image of a board's identity memory.")
    parser.add_argument("--product", default="QV Encoder")
    parser.add_argument("--brand", default="QV")
    parser.add_argument("--hardware", default="3.1")
    parser.add_argument("--country", default="")
    parser.add_argument("--video-inputs", default="hdmi,sdi")
    parser.add_argument("--video-outputs", default="hdmi")
    parser.add_argument("--audio-inputs", default="embedded,analog")
    parser.add_argument("--audio-outputs", default="headphone")
    parser.add_argument("--build", type=int, default=1520)
    parser.add_argument("--serial", type=int, default=100234)
    parser.add_argument("--build-text", help="text instead of the build and serial numbers")
    parser.add_argument("output")
    return parser, parser.parse_args()


def records(given):
    values = vars(given)
    for name, group in TEXT_GROUPS.items():
        if values[name]:
            yield group, values[name].encode("ascii")
    for name, group in CONNECTOR_GROUPS.items():
        yield group, connectors(values[name.replace("-", "_")])
    if given.build_text:
        yield BUILD_GROUP, given.build_text.encode("ascii")
    else:
        yield BUILD_GROUP, struct.pack("<BBII", 1, 0, given.build, given.serial)


def main():
    parser, given = arguments()
    try:
        data = image(records(given))
    except (ValueError, struct.error) as error:
        parser.error(str(error))
    with open(given.output, "wb") as output:
        output.write(data)


if __name__ == "__main__":
    main()
