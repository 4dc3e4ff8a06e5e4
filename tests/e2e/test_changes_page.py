"""docs/changes.md shows what the daemon does: its examples, typed as they stand there and in their order, at the other end
of the appliance's network cable."""

import json
import re

from pages import Shell, blocks_of, examples

# What differs from one run to the next.
PLACEHOLDERS = [
    (r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", "TIME"),
    (r"(seconds\"?[:=])\d+", r"\g<1>0"),
    (r"user \d+", "user UID"),
    (r"qvc: (cannot reach the daemon|no answer|the connection broke) .*", "qvc: CUT OFF"),
]


def comparable(text):
    for pattern, placeholder in PLACEHOLDERS:
        text = re.sub(pattern, placeholder, text)
    return json.loads(text) if text.startswith('{"') else text


def test_the_page_shows_what_happens(site):
    a = site.appliance
    shown = [one for block in blocks_of("docs/changes.md") if block.language == "console" for one in examples(block.lines)]
    assert len(shown) > 30
    with Shell(site.our_network.inside("bash"), a.environment()) as shell:
        for command, lines in shown:
            assert comparable("\n".join(shell.type(command[2:]))) == comparable("\n".join(lines)), command
