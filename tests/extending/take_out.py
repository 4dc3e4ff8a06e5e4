"""Takes the code out of docs/extending.md: each block goes to where it says, into a copy of the source that it extends.
Usage: take_out.py REPOSITORY FOLDER [--list]      --list: names the sources that it would write, and those it reads

    row=FILE      behind the first row of the table
    before=FILE   in front of the table
    in=FILE       at the end of the namespace
    include=FILE  behind the first of its own includes
    file=FILE     a file of its own
    test          into the test
"""

import pathlib
import re
import sys

TEST = "extending_test.cpp"
FRAME = '#include "commands_fixture.h"\n\nnamespace qvcd {{\nnamespace {{\n\nusing testing::HasSubstr;\nusing ExtendingTest = ModelTest;\n\n{}\n}}\n}}\n'
PLACES = {  # the first match: what comes goes behind group 1
    "row": r"(?ms)^(constexpr \w+ \w+\[\] = \{\n[^\n]*\n)",
    "before": r"(?ms)^()constexpr \w+ \w+\[\] = \{\n",
    "in": r"(?ms)^()\} // namespace qvcd\n\Z",
    "include": r'(?m)^(#include "[^\n]*\n\n)',
}


def take_out(repository):
    """{file: text}, and the names of the sources that were extended."""
    made, extended, tests = {}, [], []
    page = (repository / "docs/extending.md").read_text()
    for words, code in re.findall(r"^```cpp (\S+)\n(.*?)^```$", page, re.M | re.S):
        place, _, name = words.partition("=")
        if place == "test":
            tests.append(code)
        elif place == "file":
            made[name] = code
        else:
            if name not in made:
                made[name] = (repository / name).read_text()
                extended.append(name)
            found = re.search(PLACES[place], made[name])
            if not found:
                sys.exit(f"{name} has no place for {words}")
            made[name] = f"{made[name][:found.end(1)]}{code}\n{made[name][found.end(1):]}"
    if len(tests) != page.count("```cpp test\n") or sum(map(len, tests)) == 0:
        sys.exit("a block of docs/extending.md was not understood")
    made[TEST] = FRAME.format("\n".join(tests))
    return made, extended


def main():
    repository, folder = map(pathlib.Path, sys.argv[1:3])
    made, extended = take_out(repository)
    if sys.argv[3:] == ["--list"]:
        print(";".join(str(folder / name) for name in made), ";".join(str(repository / name) for name in extended), sep="\n")
        return
    for name, text in made.items():
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        if not path.exists() or path.read_text() != text:
            path.write_text(text)
        else:
            path.touch()


main()
